// The least a cold extension process can do and still store a push durably: one POST with
// libcurl on the calling thread, then the answer stored under a fresh random key with one
// prepared upsert into the store's own file (WAL, synchronous FULL, no checkpoint on close, the
// log copied back at 128 pages and emptied on closing past that, as the project keeps it). No configuration,
// no decoding, no second thread. Linked as fexo is (SQLite and the C++ runtime inside, unused
// sections dropped), so that it starts the way fexo starts.
//
//   bench_cold_floor URL BODY_FILE STORE_FILE CLIENT_ID CLIENT_SECRET
//
// Exits 0 only when the server answered 200 and the record was written.

#include <curl/curl.h>
#include <sqlite3.h>
#include <sys/random.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

size_t append(char* data, size_t size, size_t count, void* answer)
{
    static_cast<std::string*>(answer)->append(data, size * count);
    return size * count;
}

bool readFile(const char* path, std::string& into)
{
    std::FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) into.append(buffer, n);
    std::fclose(file);
    return true;
}

int copyLongLog(void* frames, sqlite3* database, const char* schema, int inLog)
{
    *static_cast<int*>(frames) = inLog;
    if (inLog >= 128) sqlite3_wal_checkpoint(database, schema);
    return SQLITE_OK;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 6) {
        std::fputs("usage: bench_cold_floor URL BODY_FILE STORE_FILE CLIENT_ID CLIENT_SECRET\n", stderr);
        return 2;
    }
    std::string body;
    if (!readFile(argv[2], body)) return 3;

    CURL* easy = curl_easy_init();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    headers = curl_slist_append(headers, (std::string("client_id: ") + argv[4]).c_str());
    headers = curl_slist_append(headers, (std::string("client_secret: ") + argv[5]).c_str());
    std::string answer;
    curl_easy_setopt(easy, CURLOPT_URL, argv[1]);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
    long status = 0;
    const bool answered = curl_easy_perform(easy) == CURLE_OK &&
                          curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK && status == 200;
    curl_slist_free_all(headers);
    curl_easy_cleanup(easy);
    if (!answered) return 4;

    std::uint8_t random[16];
    if (getrandom(random, sizeof random, 0) != sizeof random) return 5;
    std::string key = "response_";
    for (const auto byte : random) {
        key += "0123456789ABCDEF"[byte >> 4];
        key += "0123456789ABCDEF"[byte & 15];
    }

    sqlite3* database = nullptr;
    sqlite3_stmt* upsert = nullptr;
    int frames = 0;
    bool stored =
        sqlite3_open_v2(argv[3], &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK;
    if (stored) {
        sqlite3_busy_timeout(database, 5000);
        sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        sqlite3_wal_hook(database, copyLongLog, &frames);
        stored = sqlite3_exec(database, "PRAGMA synchronous = FULL", nullptr, nullptr, nullptr) == SQLITE_OK &&
                 sqlite3_prepare_v2(database,
                                    "INSERT INTO defaults (key, kind, value) VALUES (?1, 5, ?2) ON CONFLICT (key) DO "
                                    "UPDATE SET kind = excluded.kind, value = excluded.value",
                                    -1, &upsert, nullptr) == SQLITE_OK;
    }
    if (stored) {
        sqlite3_bind_text(upsert, 1, key.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_blob(upsert, 2, answer.data(), static_cast<int>(answer.size()), SQLITE_STATIC);
        stored = sqlite3_step(upsert) == SQLITE_DONE;
    }
    sqlite3_finalize(upsert);
    if (frames >= 128) {
        sqlite3_busy_timeout(database, 0);
        sqlite3_wal_checkpoint_v2(database, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    }
    sqlite3_close(database);
    if (!stored) return 6;
    std::fwrite(answer.data(), 1, answer.size(), stdout);
    return 0;
}
