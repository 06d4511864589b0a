// Parses one fixture N times with one library and nothing else, for instruction counts under
// callgrind (see callgrind.sh): running it with N and with 0 parses and subtracting leaves the
// cost of the parses alone, without loading the file or starting the process.
//
// Usage: json_parse_count minijson|rapidjson|qjsondocument <fixture file> <parses>
#include <minijson.h>
#include <minijson/file_io.h>

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <rapidjson/document.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// A checksum over the parsed trees keeps the compiler from dropping a parse.
volatile long g_sink = 0;

void parseMinijson(const std::string& text, long parses)
{
    for (long i = 0; i < parses; ++i)
        g_sink = g_sink + minijson::CParser::Parse(text)->Count();
}

void parseRapidJson(const std::string& text, long parses)
{
    for (long i = 0; i < parses; ++i) {
        rapidjson::Document document;
        document.Parse(text.data(), text.size());
        g_sink = g_sink + (document.HasParseError() ? 0 : static_cast<long>(document.MemberCount()));
    }
}

void parseQJsonDocument(const QByteArray& text, long parses)
{
    for (long i = 0; i < parses; ++i)
        g_sink = g_sink + QJsonDocument::fromJson(text).object().size();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s minijson|rapidjson|qjsondocument <fixture file> <parses>\n", argv[0]);
        return 2;
    }
    const std::string text = minijson::detail::ReadWholeFile(argv[2]);
    const long parses = std::strtol(argv[3], nullptr, 10);
    if (std::strcmp(argv[1], "minijson") == 0)
        parseMinijson(text, parses);
    else if (std::strcmp(argv[1], "rapidjson") == 0)
        parseRapidJson(text, parses);
    else if (std::strcmp(argv[1], "qjsondocument") == 0)
        parseQJsonDocument(QByteArray::fromStdString(text), parses);
    else
        return 2;
    return 0;
}
