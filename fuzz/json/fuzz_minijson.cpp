// libFuzzer target for the JSON parser and writer.
//
// Any input may be refused with CParseErrorException; anything else thrown, any memory error
// (the target is built with ASan/UBSan), a tree that does not print back identically after a
// second parse, a member not found by its name or a parsed tree that changes differently from its
// copy is a finding.
#include <minijson.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

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

// Every member must be found by its name at its own position.
void checkLookups(const minijson::CEntity& entity)
{
    if (entity.IsObject()) {
        const minijson::CObject& object = entity.Object();
        for (int i = 0; i < object.Count(); ++i)
            check(object.Find(object.MemberNameByIndex(i)) == &object.EntityAtIndex(i),
                  "member not found by name");
    }
    for (int i = 0; i < entity.Count(); ++i)
        checkLookups(entity[i]);
}

// Moves the first member of every object to its end: removal, lookup and growth on the storage
// that the parser laid out.
void rotateMembers(minijson::CEntity& entity)
{
    if (entity.IsObject() && entity.Count() > 0) {
        minijson::CObject& object = entity.Object();
        const std::string name = object.MemberNameByIndex(0);
        auto value = object.EntityAtIndex(0).Copy();
        check(object.Remove(name), "member not removed");
        object.Add(name, std::move(value));
    }
    for (int i = 0; i < entity.Count(); ++i)
        rotateMembers(entity[i]);
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
    const auto copy = tree->Copy();
    check(minijson::CWriter(false).Write(*copy) == compact, "copy differs from the original");
    checkLookups(*tree);

    // The parsed tree and its copy, built member by member, must change alike.
    rotateMembers(*tree);
    rotateMembers(*copy);
    check(minijson::CWriter(false).Write(*tree) == minijson::CWriter(false).Write(*copy),
          "a parsed tree and its copy differ after the same changes");
    checkLookups(*tree);
    return 0;
}
