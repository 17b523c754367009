#pragma once

#include <FeXOPlatform/Export.hpp>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace fexo {

// Checking and repairing the app group's shared store by hand, for a store that SQLite reports
// damaged (reads of a damaged store end the process). Both work on the store's files directly,
// report everything as values and never end the process for a damaged store.
//
// The store is the configured app group's: the first call loads the configuration as the
// library does and raises as it does (an NSException) when it is missing. Any thread.
class FEXO_EXPORT FeXOStoreMaintenance {
public:
    struct Check {
        std::filesystem::path databasePath;
        // What is wrong, in SQLite's words; empty for a sound store.
        std::vector<std::string> problems;

        bool isSound() const { return problems.empty(); }
    };

    struct Repair {
        std::filesystem::path databasePath;
        // Where the damaged database (and its log, with "-wal" appended) were moved.
        std::filesystem::path damagedPath;
        // Keys copied into the fresh store.
        std::size_t saved = 0;
        // Keys that were found but whose values could not be read.
        std::size_t lost = 0;
        // Part of the store could not be read at all: the keys there, if there were any, are lost
        // and cannot be counted, so `lost` is only the least number lost.
        bool unlistedKeysLost = false;
        // Why nothing was repaired; empty on success (the store is then fresh and sound).
        std::string failure;

        bool succeeded() const { return failure.empty(); }
        // Whether keys were, or may have been, lost.
        bool mayHaveLostKeys() const { return lost > 0 || unlistedKeysLost; }
    };

    // SQLite's integrity check of the store, read through its log.
    static Check check();

    // Holds the store's write lock while it copies every key/value it can still read, the host
    // app's own keys too, into a fresh store, moves the damaged files aside and puts the fresh
    // store in their place. Every key that SQLite still reads by key is saved, and so are keys
    // that only a neighbouring page still leads to. The search past damaged pages is bounded:
    // at most 200,000 seeks into key ranges not yet read and 16 MiB of pending ranges, besides
    // reading each key once. Refused (a failure, nothing touched) while this process holds the
    // store open: a FeXOService or an extension handler that used the store keeps its
    // connection for as long as it, or a copy of it, lives. Other processes must not have the
    // store open either: a connection opened before keeps using the damaged files.
    static Repair repair();
};

} // namespace fexo
