// Encode and decode speed of two typical hub messages: a "sendDataPoint" call with an
// identifier and a text value, and a signal carrying a QMap<QString,QString> of 20 entries.
// Decoding runs one long-lived parser, as a connection does.
//
// Run: bench_socketcodec --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <common/messaging/socketparser.h>

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace {

// The values exist at the sender already; building the message from them is part of sending.
struct Samples
{
    Samples()
    {
        for (int i = 0; i < 20; ++i)
            map.insert(QString("hueBridgeNames/00178812%1").arg(i, 4, 10, QChar('0')),
                       QString("Hue Bridge %1").arg(i));
    }

    SocketMessage message(int which) const
    {
        SocketMessage message;
        if (which == 0) {
            message.type = socketwire::CallWithReply;
            message.queryId = 4711;
            message.name = "sendDataPoint";
            message.arguments = {id, value};
        } else {
            message.type = socketwire::Signal;
            message.name = "configValuesChanged";
            message.arguments = {map};
        }
        return message;
    }

    const InternalId id = InternalId::makeOutputDataPointSerial(0xBEED, 0x00030007, 1, 4);
    const QString value = QStringLiteral("87.5");
    QMap<QString, QString> map;
};

SocketMessage decodeOne(SocketMessageParser& parser, const QByteArray& bytes)
{
    parser.append(bytes);
    for (;;) {
        switch (parser.parse()) {
        case SocketMessageParser::Event::MessageComplete:
            return parser.takeMessage();
        case SocketMessageParser::Event::CallNameRead:
            break;
        default:
            std::abort(); // the sample bytes are complete and valid
        }
    }
}

void BM_Encode(benchmark::State& state)
{
    const int which = int(state.range(0));
    const Samples samples;
    for (auto _ : state) {
        const QByteArray bytes = samples.message(which).encode();
        benchmark::DoNotOptimize(bytes.constData());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * samples.message(which).encode().size());
}

void BM_Decode(benchmark::State& state)
{
    const QByteArray bytes = Samples().message(int(state.range(0))).encode();
    SocketMessageParser parser;
    for (auto _ : state) {
        const SocketMessage message = decodeOne(parser, bytes);
        benchmark::DoNotOptimize(message.arguments.constData());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

// What one hop costs: the sender's encode and the receiver's decode and signature lookup key.
void BM_EncodeDecode(benchmark::State& state)
{
    const int which = int(state.range(0));
    const Samples samples;
    SocketMessageParser parser;
    for (auto _ : state) {
        const SocketMessage message = decodeOne(parser, samples.message(which).encode());
        const QByteArray signature = message.getSignature();
        benchmark::DoNotOptimize(signature.constData());
    }
    state.SetItemsProcessed(state.iterations());
}

// Argument 0: the "sendDataPoint" call; 1: the signal with 20 map entries.
void samples(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("map20")->Arg(0)->Arg(1);
}

} // namespace

BENCHMARK(BM_Encode)->Apply(samples);
BENCHMARK(BM_Decode)->Apply(samples);
BENCHMARK(BM_EncodeDecode)->Apply(samples);

BENCHMARK_MAIN();
