#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace fexo {

// Checking and repairing a suite's store by hand, for a store that reads refuse because SQLite
// reports it damaged. Both work on the suite's files directly and never end the process. For the
// library's public FeXOStoreMaintenance.
class UserDefaultsRepair {
public:
    struct Check {
        std::filesystem::path databasePath;
        // What is wrong, in SQLite's words; empty for a sound store.
        std::vector<std::string> problems;
    };

    struct Outcome {
        std::filesystem::path databasePath;
        // Where the damaged database (and its log, with "-wal" appended) were moved.
        std::filesystem::path damagedPath;
        std::size_t saved = 0;
        // Keys that were found but whose values could not be read.
        std::size_t lost = 0;
        // Part of the store could not be read at all: the keys there, if any, are lost and cannot
        // be counted.
        bool unlistedKeysLost = false;
        // Why nothing was repaired; empty on success (the store is then fresh and sound).
        std::string failure;
    };

    // Runs SQLite's integrity check on the suite's store, reading through its log.
    static Check check(std::string_view suiteName);

    // Holds the store's write lock while it copies every key/value it can still read, the host
    // app's own keys too (found by StoreKeySalvage), into a fresh store, moves the damaged files
    // aside and puts the fresh store in their place. Refused while this process has the store
    // open (OpenStores). Other processes must not have the store open meanwhile: a connection
    // opened before keeps using the damaged files.
    static Outcome repair(std::string_view suiteName);
};

} // namespace fexo
