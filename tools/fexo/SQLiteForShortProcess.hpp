#pragma once

namespace fexo::tool {

// Sets SQLite up for a process that opens the store once, does one or a few writes and exits:
// no page-cache memory is set aside and initialised when a connection opens (SQLite otherwise
// prepares room for 20 pages at once, writing to each), so only the pages a command reads or
// writes are allocated. Must run before anything in the process uses SQLite (first in main);
// later it has no effect. Process-wide: for the fexo executable, never for the library.
void configureSQLiteForShortProcess();

} // namespace fexo::tool
