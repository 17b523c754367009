#pragma once

// FEXO_EXPORT marks what the shared library exposes to host apps; everything else is
// built with hidden visibility and stays internal. The static archive that the tests and
// the tool link defines FEXO_STATIC_DEFINE and exports nothing.
#if defined(FEXO_STATIC_DEFINE)
#define FEXO_EXPORT
#else
#define FEXO_EXPORT __attribute__((visibility("default")))
#endif
