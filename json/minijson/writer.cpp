#include "minijson/writer.h"

#include "minijson/array.h"
#include "minijson/file_io.h"
#include "minijson/number.h"
#include "minijson/object.h"
#include "minijson/scalars.h"

namespace minijson {
namespace {

// The escape letter for a byte, or 0 when the byte is copied as it is.
constexpr char escapeLetter(unsigned char c) noexcept
{
    switch (c) {
    case '"':
        return '"';
    case '\\':
        return '\\';
    case '/':
        return '/';
    case '\b':
        return 'b';
    case '\f':
        return 'f';
    case '\n':
        return 'n';
    case '\r':
        return 'r';
    case '\t':
        return 't';
    default:
        return 0;
    }
}

} // namespace

std::string CWriter::Write(const CEntity& entity, int level) const
{
    std::string out;
    AppendTo(out, entity, level);
    return out;
}

void CWriter::AppendTo(std::string& out, const CEntity& entity, int level) const
{
    appendValue(out, entity, level);
}

void CWriter::WriteToFile(const std::string& path, const CEntity& entity) const
{
    detail::WriteWholeFile(path, Write(entity));
}

std::string CWriter::EscapeString(std::string_view text)
{
    std::string out;
    AppendEscaped(out, text);
    return out;
}

void CWriter::AppendEscaped(std::string& out, std::string_view text)
{
    // Copy runs that need no escaping in one go; most strings are a single run.
    std::size_t runStart = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char letter = escapeLetter(static_cast<unsigned char>(text[i]));
        if (letter == 0)
            continue;
        out.append(text.data() + runStart, i - runStart);
        out.push_back('\\');
        out.push_back(letter);
        runStart = i + 1;
    }
    out.append(text.data() + runStart, text.size() - runStart);
}

void CWriter::appendValue(std::string& out, const CEntity& entity, int level) const
{
    switch (entity.Kind()) {
    case CEntity::EKind::Object:
        appendObject(out, entity, level);
        break;
    case CEntity::EKind::Array:
        appendArray(out, entity, level);
        break;
    case CEntity::EKind::String:
        out.push_back('"');
        AppendEscaped(out, entity.StringValue());
        out.push_back('"');
        break;
    case CEntity::EKind::Number:
        out.append(entity.Number().Text());
        break;
    case CEntity::EKind::Boolean:
        out.append(entity.Boolean().Value() ? "true" : "false");
        break;
    case CEntity::EKind::Null:
        out.append("null");
        break;
    }
}

void CWriter::appendObject(std::string& out, const CEntity& entity, int level) const
{
    const CObject& object = entity.Object();
    const int count = object.Count();
    out.push_back('{');
    for (int i = 0; i < count; ++i) {
        appendLineStart(out, level + 1);
        out.push_back('"');
        AppendEscaped(out, object.MemberNameByIndex(i));
        out.append("\":", 2);
        appendValue(out, object.EntityAtIndex(i), level + 1);
        if (i + 1 < count)
            out.push_back(',');
    }
    if (count > 0)
        appendLineStart(out, level);
    out.push_back('}');
}

void CWriter::appendArray(std::string& out, const CEntity& entity, int level) const
{
    const CArray& array = entity.Array();
    const int count = array.Count();
    out.push_back('[');
    for (int i = 0; i < count; ++i) {
        appendLineStart(out, level + 1);
        appendValue(out, array.EntityAtIndex(i), level + 1);
        if (i + 1 < count)
            out.push_back(',');
    }
    if (count > 0)
        appendLineStart(out, level);
    out.push_back(']');
}

// In the indented form every member, element and closing bracket starts a new line.
void CWriter::appendLineStart(std::string& out, int level) const
{
    if (!m_indented)
        return;
    out.push_back('\n');
    for (int i = 0; i < level; ++i)
        out.append(m_indent);
}

} // namespace minijson
