// Parse and write times of minijson against QJsonDocument and RapidJSON's DOM, all three on the
// same bridge replies in one run, so that the ratios compare like with like.
//
// Run: bench_minijson --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
// and compare the medians of one run. Instructions per parse of the same fixtures, which vary far
// less on a busy machine than times do: bench/json/callgrind.sh <build dir> (json_parse_count).
#include <minijson.h>

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <string>

namespace {

const char* const kFixtures[] = {"clip_v2_lights.json", "api_v1_lights.json"};

std::string loadFixture(const benchmark::State& state)
{
    const char* name = kFixtures[state.range(0)];
    QFile file(QStringLiteral(HUE_JSON_FIXTURE_DIR "/") + QString::fromLatin1(name));
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot open fixture %s\n", name);
        std::abort();
    }
    return file.readAll().toStdString();
}

void describe(benchmark::State& state, std::size_t bytes)
{
    state.SetLabel(kFixtures[state.range(0)]);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void BM_Parse_minijson(benchmark::State& state)
{
    const std::string text = loadFixture(state);
    for (auto _ : state) {
        auto tree = minijson::CParser::Parse(text);
        benchmark::DoNotOptimize(tree.get());
    }
    describe(state, text.size());
}

void BM_Parse_QJsonDocument(benchmark::State& state)
{
    const QByteArray text = QByteArray::fromStdString(loadFixture(state));
    for (auto _ : state) {
        QJsonDocument document = QJsonDocument::fromJson(text);
        benchmark::DoNotOptimize(document);
    }
    describe(state, static_cast<std::size_t>(text.size()));
}

void BM_Parse_RapidJSON(benchmark::State& state)
{
    const std::string text = loadFixture(state);
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(text.data(), text.size());
        benchmark::DoNotOptimize(document.HasParseError());
    }
    describe(state, text.size());
}

void BM_Write_minijson(benchmark::State& state)
{
    const std::string text = loadFixture(state);
    const auto tree = minijson::CParser::Parse(text);
    const minijson::CWriter writer(false);
    for (auto _ : state) {
        std::string out = writer.Write(*tree);
        benchmark::DoNotOptimize(out.data());
    }
    describe(state, text.size());
}

void BM_Write_QJsonDocument(benchmark::State& state)
{
    const QByteArray text = QByteArray::fromStdString(loadFixture(state));
    const QJsonDocument document = QJsonDocument::fromJson(text);
    for (auto _ : state) {
        QByteArray out = document.toJson(QJsonDocument::Compact);
        benchmark::DoNotOptimize(out.data());
    }
    describe(state, static_cast<std::size_t>(text.size()));
}

void BM_Write_RapidJSON(benchmark::State& state)
{
    const std::string text = loadFixture(state);
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    for (auto _ : state) {
        rapidjson::StringBuffer out;
        rapidjson::Writer<rapidjson::StringBuffer> writer(out);
        document.Accept(writer);
        benchmark::DoNotOptimize(out.GetString());
    }
    describe(state, text.size());
}

// Argument: index into kFixtures.
#define JSON_BENCHMARK(function) BENCHMARK(function)->DenseRange(0, 1)->Unit(benchmark::kMicrosecond)
JSON_BENCHMARK(BM_Parse_minijson);
JSON_BENCHMARK(BM_Parse_QJsonDocument);
JSON_BENCHMARK(BM_Parse_RapidJSON);
JSON_BENCHMARK(BM_Write_minijson);
JSON_BENCHMARK(BM_Write_QJsonDocument);
JSON_BENCHMARK(BM_Write_RapidJSON);

} // namespace

BENCHMARK_MAIN();
