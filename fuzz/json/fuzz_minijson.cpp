// libFuzzer target for the JSON parser and writer.
//
// Any input may be refused with CParseErrorException; anything else thrown, any memory error
// (the target is built with ASan/UBSan) or a tree that does not print back identically after a
// second parse is a finding.
#include <minijson.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void check(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "fuzz_minijson: %s\n", what);
        std::abort();
    }
}

// Reads every number in every way so that the conversions see fuzzed texts too.
void touchNumbers(const minijson::CEntity& entity)
{
    if (entity.IsNumber()) {
        const minijson::CNumber& number = entity.Number();
        volatile double sink = number.ValueDouble() + number.ValueFloat() + number.ValueInt();
        (void)sink;
        return;
    }
    for (int i = 0; i < entity.Count(); ++i)
        touchNumbers(entity[i]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::unique_ptr<minijson::CEntity> tree;
    try {
        tree =
            minijson::CParser::Parse(reinterpret_cast<const char*>(data), static_cast<std::ptrdiff_t>(size));
    } catch (const minijson::CParseErrorException& e) {
        check(e.Position() <= size, "error position beyond the input");
        return 0;
    }

    const std::string compact = minijson::CWriter(false).Write(*tree);
    const std::string indented = minijson::CWriter(true, "  ").Write(*tree);
    touchNumbers(*tree);

    // Whatever the writer prints must parse again and print the same bytes.
    const auto reparsed = minijson::CParser::Parse(compact);
    check(minijson::CWriter(false).Write(*reparsed) == compact, "compact form changed after a reparse");
    const auto fromIndented = minijson::CParser::Parse(indented);
    check(minijson::CWriter(false).Write(*fromIndented) == compact, "indented form parses to another tree");
    check(minijson::CWriter(false).Write(*tree->Copy()) == compact, "copy differs from the original");
    return 0;
}
