#include "minijson/parser.h"

#include "minijson/arena.h"
#include "minijson/array.h"
#include "minijson/exceptions.h"
#include "minijson/file_io.h"
#include "minijson/number.h"
#include "minijson/object.h"
#include "minijson/scalars.h"
#include "minijson/tree_access.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace minijson {
namespace {

bool isWhiteSpace(char c) noexcept
{
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

bool isNumberChar(char c) noexcept
{
    return (c >= '0' && c <= '9') || c == '.';
}

int hexValue(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// A UTF-16 code unit as UTF-8; surrogates are encoded on their own, not paired.
void appendUtf8(std::string& out, unsigned codeUnit)
{
    if (codeUnit < 0x80) {
        out.push_back(static_cast<char>(codeUnit));
    } else if (codeUnit < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (codeUnit >> 6)));
        out.push_back(static_cast<char>(0x80 | (codeUnit & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xE0 | (codeUnit >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codeUnit >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codeUnit & 0x3F)));
    }
}

// The first '"' or '\' in [p, end), or end. Eight bytes at a time where the byte order allows.
inline __attribute__((always_inline)) const char* findQuoteOrBackslash(const char* p,
                                                                       const char* end) noexcept
{
#if defined(__GNUC__) && defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    constexpr std::uint64_t kOnes = 0x0101010101010101u;
    constexpr std::uint64_t kHighBits = 0x8080808080808080u;
    while (end - p >= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, sizeof word);
        const std::uint64_t quotes = word ^ (kOnes * '"');
        const std::uint64_t backslashes = word ^ (kOnes * '\\');
        // The high bit of each zero byte; a borrow can only mark bytes above the first hit.
        const std::uint64_t hits =
            (((quotes - kOnes) & ~quotes) | ((backslashes - kOnes) & ~backslashes)) & kHighBits;
        if (hits != 0)
            return p + (__builtin_ctzll(hits) >> 3);
        p += 8;
    }
#endif
    while (p != end && *p != '"' && *p != '\\')
        ++p;
    return p;
}

// One pass over the input. `m_pos` never moves past `m_end`, and every byte is read only after
// checking that, so no input can make the parser read outside it.
//
// The values of the tree are placed in an arena that the root takes over at the end. Member
// names are read straight into the slots of their object; elements gather on a stack shared by
// all nesting levels, so that each array gets its storage in one exact block once it is complete.
class Reader
{
public:
    explicit Reader(std::string_view text)
        : m_begin(text.data()), m_pos(m_begin), m_end(m_begin + text.size()),
          m_arena(firstChunkFor(text.size()), laterChunksFor(text.size()))
    {
    }

    std::unique_ptr<CEntity> parseDocument()
    {
        skipWhiteSpace();
        if (atEnd())
            fail(position(), "Empty input");
        std::unique_ptr<CEntity> root;
        if (*m_pos == '{') {
            auto object = std::make_unique<CObject>();
            parseObject(*object);
            root = std::move(object);
        } else if (*m_pos == '[') {
            auto array = std::make_unique<CArray>();
            parseArray(*array);
            root = std::move(array);
        } else {
            fail(position(), "Syntax error");
        }
        skipWhiteSpace();
        if (!atEnd())
            fail(position(), "Extra bytes at end of json");
        if (!m_arena.Empty()) {
            auto arena = std::make_unique<detail::Arena>(0, 0);
            arena->TakeFrom(m_arena);
            detail::ArenaOwner& owner = root->IsObject() ? detail::TreeAccess::ArenaOf(root->Object())
                                                         : detail::TreeAccess::ArenaOf(root->Array());
            owner.Adopt(arena.release());
        }
        return root;
    }

private:
    using Member = detail::TreeAccess::Member;

    // A parsed tree takes about eight times the bytes of its text (bridge replies take six to
    // nine), so that one block usually holds all of it; a quarter of that more as needed.
    static std::size_t firstChunkFor(std::size_t length) noexcept
    {
        constexpr std::size_t kSmallest = 1024;
        constexpr std::size_t kLargest = std::size_t(1) << 20;
        return length > kLargest / 8 ? kLargest : std::max(kSmallest, 8 * length);
    }

    static std::size_t laterChunksFor(std::size_t length) noexcept
    {
        return std::max<std::size_t>(1024, firstChunkFor(length) / 4);
    }

    bool atEnd() const noexcept { return m_pos == m_end; }
    std::size_t position() const noexcept { return static_cast<std::size_t>(m_pos - m_begin); }

    void skipWhiteSpace() noexcept
    {
        while (m_pos != m_end && isWhiteSpace(*m_pos))
            ++m_pos;
    }

    [[noreturn]] void fail(std::size_t at, const char* message) const
    {
        throw CParseErrorException(std::string(m_begin, m_end), at, "%s", message);
    }

    [[noreturn]] void failExpected(const char* what) const
    {
        throw CParseErrorException(std::string(m_begin, m_end), position(),
                                   "Syntax error: Expected '%s' at or after position %zu", what, position());
    }

    void expect(char c, const char* what)
    {
        if (atEnd() || *m_pos != c)
            failExpected(what);
        ++m_pos;
    }

    bool startsWith(const char* word, std::size_t length) const noexcept
    {
        return static_cast<std::size_t>(m_end - m_pos) >= length && std::memcmp(m_pos, word, length) == 0;
    }

    template <typename T, typename... Args> detail::EntityPtr make(Args&&... args)
    {
        return detail::EntityPtr(detail::TreeAccess::Make<T>(m_arena, std::forward<Args>(args)...));
    }

    detail::EntityPtr parseValue()
    {
        if (!atEnd()) {
            switch (*m_pos) {
            case '"': {
                const char* run;
                std::size_t length;
                const bool ended = scanString(run, length);
                CString* string = detail::TreeAccess::MakeString(m_arena, run, length);
                detail::EntityPtr value(string);
                if (!ended)
                    parseEscapedRest(detail::TreeAccess::TextOf(*string), quotePositionOf(run));
                return value;
            }
            case '[': {
                CArray* array = detail::TreeAccess::Make<CArray>(m_arena);
                detail::EntityPtr value(array);
                parseArray(*array);
                return value;
            }
            case '{': {
                CObject* object = detail::TreeAccess::Make<CObject>(m_arena);
                detail::EntityPtr value(object);
                parseObject(*object);
                return value;
            }
            case 't':
                if (startsWith("true", 4)) {
                    m_pos += 4;
                    return make<CBoolean>(true);
                }
                break;
            case 'f':
                if (startsWith("false", 5)) {
                    m_pos += 5;
                    return make<CBoolean>(false);
                }
                break;
            case 'n':
                if (startsWith("null", 4)) {
                    m_pos += 4;
                    return make<CNull>();
                }
                break;
            default:
                break;
            }
        }
        return parseNumber();
    }

    detail::EntityPtr parseNumber()
    {
        const char* start = m_pos;
        if (!atEnd() && *m_pos == '-')
            ++m_pos;
        while (!atEnd() && isNumberChar(*m_pos))
            ++m_pos;
        if (m_pos == start)
            failExpected("value");
        return detail::EntityPtr(detail::TreeAccess::MakeNumber(
            m_arena, std::string_view(start, static_cast<std::size_t>(m_pos - start))));
    }

    // Reads a string literal from its opening quote up to its end or its first escape and sets
    // [run, run + length) to the plain bytes read. Returns whether the literal has ended; if not,
    // parseEscapedRest() continues it.
    bool scanString(const char*& run, std::size_t& length) noexcept
    {
        run = ++m_pos;
        m_pos = findQuoteOrBackslash(m_pos, m_end);
        length = static_cast<std::size_t>(m_pos - run);
        if (m_pos != m_end && *m_pos == '"') {
            ++m_pos;
            return true;
        }
        return false;
    }

    // The position of the opening quote of the literal whose plain start `run` is.
    std::size_t quotePositionOf(const char* run) const noexcept
    {
        return static_cast<std::size_t>(run - 1 - m_begin);
    }

    // Continues a string literal at its first backslash (or the end of the input).
    void parseEscapedRest(std::string& out, std::size_t quotePosition)
    {
        for (;;) {
            if (atEnd())
                fail(quotePosition, "Closing \" not found");
            if (*m_pos++ == '"')
                return;
            if (atEnd())
                fail(quotePosition, "Closing \" not found");
            const char escaped = *m_pos++;
            switch (escaped) {
            case 'b':
                out.push_back('\b');
                break;
            case 'f':
                out.push_back('\f');
                break;
            case 'n':
                out.push_back('\n');
                break;
            case 'r':
                out.push_back('\r');
                break;
            case 't':
                out.push_back('\t');
                break;
            case 'u':
                appendUtf8(out, parseCodeUnit(quotePosition));
                break;
            default: // '"', '\', '/' and any other character stand for themselves
                out.push_back(escaped);
                break;
            }
            // Copy the run up to the next quote or backslash in one go.
            const char* run = m_pos;
            m_pos = findQuoteOrBackslash(m_pos, m_end);
            out.append(run, static_cast<std::size_t>(m_pos - run));
        }
    }

    unsigned parseCodeUnit(std::size_t quotePosition)
    {
        if (m_end - m_pos < 4)
            fail(quotePosition, "Invalid \\u escaping");
        unsigned codeUnit = 0;
        for (int i = 0; i < 4; ++i) {
            const int digit = hexValue(m_pos[i]);
            if (digit < 0)
                fail(quotePosition, "Invalid \\u escaping");
            codeUnit = (codeUnit << 4) | static_cast<unsigned>(digit);
        }
        m_pos += 4;
        return codeUnit;
    }

    void enterContainer()
    {
        if (++m_depth > CParser::kMaxDepth)
            fail(position(), "Nesting too deep");
        ++m_pos;
        skipWhiteSpace();
    }

    void parseArray(CArray& array)
    {
        enterContainer();
        if (!atEnd() && *m_pos == ']') {
            ++m_pos;
        } else {
            const std::size_t base = m_elements.size();
            for (;;) {
                m_elements.push_back(parseValue());
                skipWhiteSpace();
                if (!atEnd() && *m_pos == ',') {
                    ++m_pos;
                    skipWhiteSpace();
                    continue;
                }
                expect(']', "]");
                break;
            }
            detail::TreeAccess::TakeElements(array, m_elements, base, m_arena);
        }
        --m_depth;
    }

    void parseObject(CObject& object)
    {
        enterContainer();
        if (!atEnd() && *m_pos == '}') {
            ++m_pos;
        } else {
            detail::Slots<Member>& members = detail::TreeAccess::MembersOf(object);
            std::uint64_t names = 0;
            for (;;) {
                if (atEnd() || *m_pos != '"')
                    failExpected("\"");
                if (members.size() == members.capacity())
                    detail::TreeAccess::GrowMembers(object, m_arena);
                const char* run;
                std::size_t length;
                const bool ended = scanString(run, length);
                // The name goes straight into its slot; nested containers do not touch this
                // object's members while the value is parsed.
                Member& member = members.emplace_back_in_place(run, length);
                if (!ended)
                    parseEscapedRest(member.name, quotePositionOf(run));
                parseColon();
                detail::TreeAccess::SettleLast(object, parseValue(), names);
                skipWhiteSpace();
                if (!atEnd() && *m_pos == ',') {
                    ++m_pos;
                    skipWhiteSpace();
                    continue;
                }
                expect('}', "}");
                break;
            }
        }
        --m_depth;
    }

    void parseColon()
    {
        skipWhiteSpace();
        expect(':', ":");
        skipWhiteSpace();
    }

    const char* const m_begin;
    const char* m_pos;
    const char* const m_end;
    int m_depth = 0;
    // Declared before the stack: a partial tree on it is destroyed before its arena.
    detail::Arena m_arena;
    std::vector<detail::EntityPtr> m_elements;
};

} // namespace

std::unique_ptr<CEntity> CParser::Parse(const char* text, std::ptrdiff_t length)
{
    if (!text)
        return Parse(std::string_view());
    return Parse(length < 0 ? std::string_view(text)
                            : std::string_view(text, static_cast<std::size_t>(length)));
}

std::unique_ptr<CEntity> CParser::Parse(std::string_view text)
{
    // An empty view may carry a null pointer; give the reader a real, empty buffer instead.
    return Reader(text.data() ? text : std::string_view("", 0)).parseDocument();
}

std::unique_ptr<CEntity> CParser::ParseFromFile(const std::string& path)
{
    const std::string content = detail::ReadWholeFile(path);
    return Parse(std::string_view(content));
}

} // namespace minijson
