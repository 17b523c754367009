#include <FeXOPlatform/PreparedStatement.hpp>

namespace fexo {

void PreparedStatementFinalizer::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

PreparedStatement prepareStatement(sqlite3* database, const char* sql)
{
    sqlite3_stmt* raw = nullptr;
    sqlite3_prepare_v2(database, sql, -1, &raw, nullptr);
    return PreparedStatement(raw);
}

} // namespace fexo
