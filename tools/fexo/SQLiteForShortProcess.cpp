#include <fexo/SQLiteForShortProcess.hpp>

#include <sqlite3.h>

namespace fexo::tool {

void configureSQLiteForShortProcess()
{
    // No buffer and no slots: each connection's page cache starts empty and grows page by page.
    sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
}

} // namespace fexo::tool
