#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace fexo::tool {

// What the development server keeps: device registrations and the per-recipient queue of
// notifications. One SQLite connection, guarded by one mutex, so every member may be called
// from any thread. Every change is one transaction; a read followed by a write runs as one
// BEGIN IMMEDIATE transaction, so two servers sharing one database file never hand out the
// same notification twice.
class DevelopmentStore {
public:
    struct Notification {
        std::string id;
        std::string recipientId;
        std::string text;
        std::string sender;
        double createdAt = 0.0; // seconds since 2001-01-01 00:00:00 UTC
    };

    // Opens (creating if needed) "devserver.sqlite" in `directory`, which is created when
    // missing; with no directory, a private in-memory database that ends with the store.
    // Throws std::runtime_error naming the file and SQLite's message when it cannot be opened.
    explicit DevelopmentStore(const std::optional<std::filesystem::path>& directory);
    ~DevelopmentStore();
    DevelopmentStore(const DevelopmentStore&) = delete;
    DevelopmentStore& operator=(const DevelopmentStore&) = delete;

    // Keeps a registration body (compact JSON text) under its device id, replacing an earlier
    // registration of that device; the replacement counts as the most recent registration.
    void saveRegistration(const std::string& deviceId, const std::string& registrationId, const std::string& bodyJson);
    // The kept registration bodies, oldest registration first.
    std::vector<std::string> registrations() const;
    // The push token of the device registered under `deviceId`, or nothing.
    std::optional<std::string> registrationIdOf(const std::string& deviceId) const;

    // Appends a notification to the end of its recipient's queue.
    void enqueue(const Notification& notification);
    // Removes and returns the oldest undelivered notification of `recipientId`; the row stays
    // in the database, marked delivered.
    std::optional<Notification> takeOldest(const std::string& recipientId);

private:
    void execute(const char* sql);

    struct Closer {
        void operator()(sqlite3* db) const;
    };
    std::unique_ptr<sqlite3, Closer> db_;
    std::string location_;
    mutable std::mutex mutex_;
};

} // namespace fexo::tool
