#include <FeXOPlatform/CertificateAuthorityEnvironment.hpp>
#include <FeXOPlatform/URLOrigin.hpp>
#include <FeXOPlatform/URLSessionTransfer.hpp>

#include <algorithm>
#include <string_view>
#include <utility>

namespace fexo {

namespace {

using Clock = URLSessionTransfer::Clock;

// Seconds beyond this are taken as "no usable value": they would overflow the clock.
constexpr double longestInterval = 1e9;

Clock::duration interval(double seconds, double fallback)
{
    if (!(seconds > 0 && seconds < longestInterval)) seconds = fallback;
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' || text.back() == '\n'))
        text.remove_suffix(1);
    return text;
}

size_t onBody(char* buffer, size_t size, size_t count, void* user) noexcept
{
    auto* transfer = static_cast<URLSessionTransfer*>(user);
    const size_t length = size * count;
    if (length > transfer->maximumBodyLength - transfer->data.size()) {
        transfer->bodyTooLong = true;
        return 0; // curl stops reading and ends the transfer with a write error
    }
    try {
        transfer->data.append(buffer, length);
    } catch (...) {
        transfer->outOfMemory = true;
        return 0;
    }
    transfer->touch();
    return length;
}

size_t onHeader(char* buffer, size_t size, size_t count, void* user) noexcept
{
    auto* transfer = static_cast<URLSessionTransfer*>(user);
    const size_t length = size * count;
    transfer->touch();
    try {
        std::string_view line(buffer, length);
        if (line.starts_with("HTTP/")) {
            // A new answer begins (an interim 1xx): only the last one counts.
            transfer->responseHeaders.clear();
        } else if (auto colon = line.find(':'); colon != std::string_view::npos && colon > 0) {
            transfer->responseHeaders.emplace_back(std::string(trimmed(line.substr(0, colon))),
                                                   std::string(trimmed(line.substr(colon + 1))));
        }
    } catch (...) {
        transfer->outOfMemory = true;
        return 0;
    }
    return length;
}

int onProgress(void* user, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t uploaded) noexcept
{
    auto* transfer = static_cast<URLSessionTransfer*>(user);
    if (downloaded != transfer->lastDown || uploaded != transfer->lastUp) {
        transfer->lastDown = downloaded;
        transfer->lastUp = uploaded;
        transfer->touch();
    }
    return 0;
}

bool headerIsSendable(const std::string& name, const std::string& value)
{
    auto bad = [](char c) { return c == '\r' || c == '\n' || c == '\0'; };
    return !name.empty() && name.find(':') == std::string::npos && std::none_of(name.begin(), name.end(), bad) &&
           std::none_of(value.begin(), value.end(), bad);
}

bool isFollowable(long status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

} // namespace

URLSessionTransfer::URLSessionTransfer(URLRequest request, URLSession::CompletionHandler completion)
    : request(std::move(request)), completion(std::move(completion))
{
}

URLSessionTransfer::~URLSessionTransfer()
{
    if (easy) curl_easy_cleanup(easy);
}

std::optional<URLError::Code> URLSessionTransfer::configure(const URLSessionConfiguration& configuration)
{
    for (const auto& [name, value] : request.allHTTPHeaderFields())
        if (!headerIsSendable(name, value)) return URLError::badURL; // would split into further headers

    easy = curl_easy_init();
    if (!easy) return URLError::unknown;
    CURL* e = easy;
    idleLimit = interval(request.timeoutInterval(), URLRequest::defaultTimeoutInterval);
    resourceDeadline = resumedAt + interval(configuration.timeoutIntervalForResource,
                                            URLSessionConfiguration::defaultTimeoutIntervalForResource);
    maximumBodyLength = configuration.maximumBodyLength;

    bool ok = curl_easy_setopt(e, CURLOPT_URL, request.url().absoluteString().c_str()) == CURLE_OK;
    curl_easy_setopt(e, CURLOPT_PRIVATE, this);
    curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(e, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
    // The session follows redirects itself, within the origin only: curl would send the
    // request's header fields to any host a Location names.
    curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(e, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(e, CURLOPT_SSL_VERIFYHOST, 2L);
    // The configuration's file, else the environment's, else libcurl's default; the environment's
    // directory, else the default. Neither falls back to the default when it cannot be read: a
    // missing file fails the transfer (secureConnectionFailed), a missing directory trusts nothing.
    const auto& environment = CertificateAuthorityEnvironment::ofProcess();
    if (const auto& file =
            configuration.certificateAuthorityFile ? configuration.certificateAuthorityFile : environment.file)
        ok = ok && curl_easy_setopt(e, CURLOPT_CAINFO, file->c_str()) == CURLE_OK;
    if (environment.directory)
        ok = ok && curl_easy_setopt(e, CURLOPT_CAPATH, environment.directory->c_str()) == CURLE_OK;
    curl_easy_setopt(e, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(e, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    // Waiting for a connection to the origin that might multiplex is only worth it where that is
    // known at the handshake (TLS with ALPN). Over plain HTTP, curl would hold every further
    // request behind one whose answer stalls, and it never multiplexes there anyway.
    curl_easy_setopt(e, CURLOPT_PIPEWAIT, request.url().scheme() == "https" ? 1L : 0L);
    curl_easy_setopt(e, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &onBody);
    curl_easy_setopt(e, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, &onHeader);
    curl_easy_setopt(e, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(e, CURLOPT_XFERINFOFUNCTION, &onProgress);
    curl_easy_setopt(e, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(e, CURLOPT_NOPROGRESS, 0L);

    curl_slist* list = nullptr;
    auto append = [&](const std::string& line) {
        curl_slist* grown = curl_slist_append(list, line.c_str());
        if (!grown) return false;
        list = grown;
        return true;
    };
    for (const auto& [name, value] : request.allHTTPHeaderFields())
        ok = ok && append(value.empty() ? name + ";" : name + ": " + value); // "Name;" sends it empty
    ok = ok && append("Expect:");                                            // no 100-continue round trip before a body
    headers.reset(list);
    curl_easy_setopt(e, CURLOPT_HTTPHEADER, list);

    const std::string& method = request.httpMethod();
    if (method == "GET") {
        curl_easy_setopt(e, CURLOPT_HTTPGET, 1L);
    } else if (method == "HEAD") {
        curl_easy_setopt(e, CURLOPT_NOBODY, 1L);
    } else {
        if (method == "POST" || request.httpBody()) {
            body = request.httpBody().value_or(std::string());
            curl_easy_setopt(e, CURLOPT_POST, 1L);
            curl_easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
            curl_easy_setopt(e, CURLOPT_POSTFIELDS, body.data());
        }
        if (method != "POST") curl_easy_setopt(e, CURLOPT_CUSTOMREQUEST, method.c_str());
    }
    return ok ? std::nullopt : std::optional(URLError::unknown);
}

std::optional<std::string> URLSessionTransfer::sameOriginRedirect(const std::string& currentURL) const
{
    long status = 0;
    char* location = nullptr;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    // curl resolves the Location against the URL that answered (relative, "//host" and all).
    if (!isFollowable(status) || curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location) != CURLE_OK || !location)
        return std::nullopt;
    const auto from = URLOrigin::of(currentURL);
    const auto to = URLOrigin::of(location);
    if (!from || !to || *from != *to) return std::nullopt;
    return std::string(location);
}

bool URLSessionTransfer::followRedirect(const std::string& target, long status)
{
    const std::string& method = request.httpMethod();
    const bool becomesGet =
        (status == 303 && method != "HEAD") || ((status == 301 || status == 302) && method == "POST");
    if (becomesGet) {
        curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, nullptr);
        curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    }
    data.clear();
    responseHeaders.clear();
    lastDown = lastUp = 0;
    ++redirectsFollowed;
    touch();
    return curl_easy_setopt(easy, CURLOPT_URL, target.c_str()) == CURLE_OK;
}

} // namespace fexo
