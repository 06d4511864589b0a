#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace minijson {
class CEntity;
}

namespace bridgeemu {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

// A large body made of pieces, each a text repeated a number of times, produced a part at a
// time as it is sent, so that a body of many megabytes never exists in memory as a whole.
class PatternBody
{
public:
    PatternBody& add(std::string text, std::size_t times = 1);
    std::size_t size() const { return m_size; }
    // Appends the bytes [offset, offset + length) (fewer at the end) to `out`.
    void read(std::size_t offset, std::size_t length, std::string& out) const;

private:
    struct Piece
    {
        std::string text;
        std::size_t times;
    };
    std::vector<Piece> m_pieces;
    std::size_t m_size = 0;
};

// One HTTP request as the emulator's API layers see it, free of the HTTP library's types so that
// they can be driven without sockets.
struct HttpRequest
{
    std::string method;
    std::string path;   // decoded, without the query
    std::string target; // as sent: path and query
    HeaderList headers;
    std::string body;
    std::string scheme; // "https" or "http"
    int localPort = 0;
    int remotePort = 0; // the client's

    // First header of that name (case-insensitive), or empty.
    std::string header(std::string_view name) const;
};

struct HttpResponse
{
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    HeaderList headers;
    // Runs on another thread once the answer has been written, for actions that would cut the
    // connection they were asked on (closing the listening sockets, for instance).
    std::function<void()> afterSend;
    // A long-lived body (the event stream) instead of `body`: called again and again on the
    // connection's thread, it may wait a little, appends what is to be sent now to `out`, and
    // returns false once the body is complete. The answer goes out chunked.
    std::function<bool(std::string& out)> stream;
    // A large body made as it is sent, instead of `body`: with a Content-Length, or chunked.
    std::shared_ptr<const PatternBody> generated;
    bool generatedChunked = false;

    static HttpResponse json(const minijson::CEntity& document, int status = 200);
    static HttpResponse text(int status, std::string body, std::string contentType = "text/plain");
};

bool equalsIgnoringCase(std::string_view a, std::string_view b);
bool startsWith(std::string_view text, std::string_view prefix);
// Splits "/a/b/c" into {"a", "b", "c"}; empty segments (doubled or trailing slashes) are kept.
std::vector<std::string> splitPath(std::string_view path);

} // namespace bridgeemu
