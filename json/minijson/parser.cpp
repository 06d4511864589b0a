#include "minijson/parser.h"

#include "minijson/array.h"
#include "minijson/exceptions.h"
#include "minijson/file_io.h"
#include "minijson/number.h"
#include "minijson/object.h"
#include "minijson/scalars.h"

#include <cstring>

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

// One pass over the input. `m_pos` never moves past `m_end`, and every byte is read only after
// checking that, so no input can make the parser read outside it.
class Reader
{
public:
    explicit Reader(std::string_view text)
        : m_begin(text.data()), m_pos(m_begin), m_end(m_begin + text.size())
    {
    }

    std::unique_ptr<CEntity> parseDocument()
    {
        skipWhiteSpace();
        if (atEnd())
            fail(position(), "Empty input");
        if (*m_pos != '{' && *m_pos != '[')
            fail(position(), "Syntax error");
        std::unique_ptr<CEntity> root = parseValue();
        skipWhiteSpace();
        if (!atEnd())
            fail(position(), "Extra bytes at end of json");
        return root;
    }

private:
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

    std::unique_ptr<CEntity> parseValue()
    {
        if (!atEnd()) {
            switch (*m_pos) {
            case '"': {
                std::string text;
                parseString(text);
                return std::make_unique<CString>(std::move(text));
            }
            case '[':
                return parseArray();
            case '{':
                return parseObject();
            default:
                break;
            }
        }
        if (startsWith("true", 4)) {
            m_pos += 4;
            return std::make_unique<CBoolean>(true);
        }
        if (startsWith("false", 5)) {
            m_pos += 5;
            return std::make_unique<CBoolean>(false);
        }
        if (startsWith("null", 4)) {
            m_pos += 4;
            return std::make_unique<CNull>();
        }
        return parseNumber();
    }

    std::unique_ptr<CEntity> parseNumber()
    {
        const char* start = m_pos;
        if (!atEnd() && *m_pos == '-')
            ++m_pos;
        while (!atEnd() && isNumberChar(*m_pos))
            ++m_pos;
        if (m_pos == start)
            failExpected("value");
        return std::make_unique<CNumber>(std::string_view(start, static_cast<std::size_t>(m_pos - start)));
    }

    // Reads a string literal starting at its opening quote into `out`.
    void parseString(std::string& out)
    {
        const std::size_t quotePosition = position();
        ++m_pos;
        for (;;) {
            // Copy the run up to the next quote or backslash in one go.
            const char* run = m_pos;
            while (m_pos != m_end && *m_pos != '"' && *m_pos != '\\')
                ++m_pos;
            out.append(run, static_cast<std::size_t>(m_pos - run));
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

    std::unique_ptr<CEntity> parseArray()
    {
        enterContainer();
        auto array = std::make_unique<CArray>();
        if (!atEnd() && *m_pos == ']') {
            ++m_pos;
        } else {
            for (;;) {
                array->Append(parseValue());
                skipWhiteSpace();
                if (!atEnd() && *m_pos == ',') {
                    ++m_pos;
                    skipWhiteSpace();
                    continue;
                }
                expect(']', "]");
                break;
            }
        }
        --m_depth;
        return array;
    }

    std::unique_ptr<CEntity> parseObject()
    {
        enterContainer();
        auto object = std::make_unique<CObject>();
        if (!atEnd() && *m_pos == '}') {
            ++m_pos;
        } else {
            for (;;) {
                if (atEnd() || *m_pos != '"')
                    failExpected("\"");
                std::string name;
                parseString(name);
                skipWhiteSpace();
                expect(':', ":");
                skipWhiteSpace();
                object->Add(std::move(name), parseValue());
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
        return object;
    }

    const char* const m_begin;
    const char* m_pos;
    const char* const m_end;
    int m_depth = 0;
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
