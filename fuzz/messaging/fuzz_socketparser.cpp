// Feeds arbitrary bytes, in chunk sizes taken from the input, to the socket message parser.
// Every message it completes must encode again and parse back to the same message, and the
// canonical bytes must be stable under a second round.
//
// Input layout: byte 0 picks how many of the following bytes (1..8) form the chunk-size table;
// chunk i is table[i % n] + 1 bytes long. The rest is the byte stream.
#include <common/logginginterface.h>
#include <common/messaging/socketparser.h>

#include <cstdint>
#include <cstdlib>

namespace {

void discardQtMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

void check(bool condition)
{
    if (!condition)
        abort();
}

// Parses bytes given at once; they must hold exactly one message and nothing else.
SocketMessage parseSingle(const QByteArray& bytes)
{
    SocketMessageParser parser;
    parser.append(bytes);
    SocketMessageParser::Event event = parser.parse();
    if (event == SocketMessageParser::Event::CallNameRead)
        event = parser.parse();
    check(event == SocketMessageParser::Event::MessageComplete);
    check(parser.bufferedBytes() == 0 && parser.parse() == SocketMessageParser::Event::NeedMoreBytes);
    return parser.takeMessage();
}

void checkRoundTrip(const SocketMessage& message)
{
    check(message.arguments.size() <= socketwire::kMaxArguments);
    const QByteArray encoded = message.encode();
    check(!encoded.isEmpty());
    const SocketMessage reparsed = parseSingle(encoded);
    check(reparsed == message);
    check(reparsed.encode() == encoded);
    check(!message.getSignature().isEmpty() && !message.describe("m").isEmpty());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setLogSink([](int, const QByteArray&) {});
    qInstallMessageHandler(discardQtMessage);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const size_t tableSize = std::min<size_t>(data[0] % 8 + 1, size - 1);
    const uint8_t* table = data + 1;
    const char* stream = reinterpret_cast<const char*>(data + 1 + tableSize);
    const size_t streamSize = size - 1 - tableSize;

    SocketMessageParser parser;
    size_t at = 0;
    for (size_t chunk = 0; at < streamSize; ++chunk) {
        const size_t length = std::min<size_t>(table[chunk % tableSize] + 1u, streamSize - at);
        parser.append(stream + at, int(length));
        at += length;
        for (;;) {
            const SocketMessageParser::Event event = parser.parse();
            if (event == SocketMessageParser::Event::NeedMoreBytes)
                break;
            if (event == SocketMessageParser::Event::CallNameRead) {
                check(parser.currentMessage().type == socketwire::CallWithReply);
            } else if (event == SocketMessageParser::Event::MessageComplete) {
                checkRoundTrip(parser.takeMessage());
            } else {
                check(parser.state() == SocketMessageParser::State::SyncWord);
                check(parser.dumpParsingState().contains("buffer content:"));
            }
        }
        check(parser.bufferSize() <= int(streamSize));
    }
    return 0;
}
