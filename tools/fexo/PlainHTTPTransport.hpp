#pragma once

#include <string>

namespace fexo::tool {

// Called before the process's first request, with the configured base URL. When that origin is
// plain HTTP and no proxy is named in the environment, no request of this process can reach TLS
// (the session follows redirects within the origin only), so the TLS library is started without
// reading its configuration file or loading its error texts, and without its clean-up at exit:
// that set-up and clean-up were most of the work of one `handle-push` beyond start-up. For any other origin it does nothing, and the TLS library
// is set up in full as before. Must run before the session's first use; later it has no effect.
void startTransportForOrigin(const std::string& baseURL);

} // namespace fexo::tool
