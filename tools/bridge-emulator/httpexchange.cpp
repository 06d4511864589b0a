#include "httpexchange.h"

#include <minijson.h>

#include <algorithm>
#include <cctype>

namespace bridgeemu {

std::string HttpRequest::header(std::string_view name) const
{
    for (const auto& [key, value] : headers) {
        if (equalsIgnoringCase(key, name))
            return value;
    }
    return {};
}

PatternBody& PatternBody::add(std::string text, std::size_t times)
{
    if (!text.empty() && times > 0) {
        m_size += text.size() * times;
        m_pieces.push_back({std::move(text), times});
    }
    return *this;
}

void PatternBody::read(std::size_t offset, std::size_t length, std::string& out) const
{
    std::size_t start = 0; // of the current piece in the body
    for (const Piece& piece : m_pieces) {
        const std::size_t pieceSize = piece.text.size() * piece.times;
        if (length == 0)
            return;
        if (offset >= start + pieceSize) {
            start += pieceSize;
            continue;
        }
        std::size_t at = offset - start; // within the piece
        const std::size_t take = std::min(length, pieceSize - at);
        if (piece.text.size() == 1) {
            out.append(take, piece.text[0]);
        } else {
            for (std::size_t left = take; left > 0;) {
                const std::size_t inText = at % piece.text.size();
                const std::size_t part = std::min(left, piece.text.size() - inText);
                out.append(piece.text, inText, part);
                at += part;
                left -= part;
            }
        }
        offset += take;
        length -= take;
        start += pieceSize;
    }
}

HttpResponse HttpResponse::json(const minijson::CEntity& document, int status)
{
    HttpResponse response;
    response.status = status;
    response.body = document.ToString();
    return response;
}

HttpResponse HttpResponse::text(int status, std::string body, std::string contentType)
{
    HttpResponse response;
    response.status = status;
    response.body = std::move(body);
    response.contentType = std::move(contentType);
    return response;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

std::vector<std::string> splitPath(std::string_view path)
{
    std::vector<std::string> segments;
    if (!path.empty() && path.front() == '/')
        path.remove_prefix(1);
    if (path.empty())
        return segments;
    std::size_t start = 0;
    while (true) {
        const std::size_t slash = path.find('/', start);
        segments.emplace_back(path.substr(start, slash == std::string_view::npos ? slash : slash - start));
        if (slash == std::string_view::npos)
            break;
        start = slash + 1;
    }
    return segments;
}

} // namespace bridgeemu
