// Linked into the fexo executable only, ahead of the static SQLite archive (tools/CMakeLists.txt).
//
// Every connection that SQLite opens registers its built-in modules: full-text search (FTS3/4
// and FTS5), R*Tree, dbstat and sqlite_stmt. The store uses none of them. Where the archive
// keeps each module in an object of its own, these no-op registrations stand in for the
// archive's, so the linker never pulls those objects in: about 330 KB less code in the
// executable, which a cold push would otherwise map, and no module set-up on each open.
// A statement naming one of these modules fails with "no such module", as in a build without it.
// JSON functions stay: the store may index on them.

struct sqlite3;

extern "C" {

int sqlite3Fts3Init(sqlite3*)
{
    return 0;
}
int sqlite3Fts5Init(sqlite3*)
{
    return 0;
}
int sqlite3RtreeInit(sqlite3*)
{
    return 0;
}
int sqlite3DbstatRegister(sqlite3*)
{
    return 0;
}
int sqlite3StmtVtabInit(sqlite3*)
{
    return 0;
}
}
