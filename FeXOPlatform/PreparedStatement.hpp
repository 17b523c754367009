#pragma once

#include <sqlite3.h>

#include <memory>

namespace fexo {

struct PreparedStatementFinalizer {
    void operator()(sqlite3_stmt* statement) const;
};

// A statement that finalizes itself when it goes.
using PreparedStatement = std::unique_ptr<sqlite3_stmt, PreparedStatementFinalizer>;

// Null when `sql` does not prepare; sqlite3_errmsg(database) then says why.
PreparedStatement prepareStatement(sqlite3* database, const char* sql);

} // namespace fexo
