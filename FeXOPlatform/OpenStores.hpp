#pragma once

#include <filesystem>

namespace fexo {

// The store files this process holds open, known by their file identity (device and inode), so
// that work that must not run beneath a live connection of this process, such as putting a
// fresh file in a store's place, can refuse. Any thread.
class OpenStores {
public:
    // Marks `databasePath` open for the mark's life. A file that cannot be looked at is not
    // marked (nothing could then find it by identity either).
    class Mark {
    public:
        explicit Mark(const std::filesystem::path& databasePath);
        ~Mark();
        Mark(const Mark&) = delete;
        Mark& operator=(const Mark&) = delete;

    private:
        bool marked_ = false;
        unsigned long long device_ = 0;
        unsigned long long inode_ = 0;
    };

    // Whether any mark of this process names the file at `databasePath`.
    static bool contains(const std::filesystem::path& databasePath);
};

} // namespace fexo
