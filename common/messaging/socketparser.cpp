#include "socketparser.h"

#include <common/logginginterface.h>

#include <cstring>

using socketwire::Reader;

namespace {

constexpr int kInitialCapacity = 4096;
// Consumed bytes are moved out once they are at least this many and at least half the buffer:
// each byte is moved at most once on average, and small buffers are not shuffled at all.
constexpr int kCompactThreshold = 4096;
// After a large message the buffer gives its memory back once it runs empty.
constexpr int kShrinkAbove = 1024 * 1024;
constexpr int kMaxDumpBytes = 256;
const char kSyncBytes[4] = {'\x45', '\xBF', '\xD7', '\xA3'};

} // namespace

SocketMessageParser::SocketMessageParser()
{
    m_buffer.reserve(kInitialCapacity);
}

void SocketMessageParser::append(const char* data, int size)
{
    if (size <= 0)
        return;
    // Everything before the message being parsed has been consumed.
    const int consumed = m_messageStart;
    if (consumed > 0 && consumed == m_buffer.size()) {
        if (m_buffer.capacity() > kShrinkAbove) {
            m_buffer = QByteArray();
            m_buffer.reserve(kInitialCapacity);
        } else {
            m_buffer.resize(0); // keeps the reserved capacity
        }
    } else if (consumed >= kCompactThreshold && consumed * 2 >= m_buffer.size()) {
        m_buffer.remove(0, consumed);
    } else {
        m_buffer.append(data, size);
        return;
    }
    m_pos -= consumed;
    m_needUntil = qMax(0, m_needUntil - consumed);
    m_messageStart = 0;
    m_buffer.append(data, size);
}

SocketMessageParser::Event SocketMessageParser::parse()
{
    m_justBroken = false;
    if (m_buffer.size() < m_needUntil)
        return Event::NeedMoreBytes;
    m_needUntil = 0;

    Reader reader(m_buffer.constData(), m_buffer.size(), m_pos);
    for (;;) {
        switch (m_state) {
        case State::SyncWord:
            if (!findSyncWord())
                return Event::NeedMoreBytes;
            reader = Reader(m_buffer.constData(), m_buffer.size(), m_pos);
            m_message = SocketMessage();
            m_state = State::MessageType;
            break;

        case State::MessageType: {
            quint8 type = 0;
            if (reader.readUInt8(type) != Reader::Done)
                return needMore(reader);
            if (type > socketwire::Subscription)
                return fail("unknown message type " + QByteArray::number(type));
            m_pos = reader.position();
            m_message.type = socketwire::MessageType(type);
            switch (m_message.type) {
            case socketwire::CallWithReply:
            case socketwire::Reply:
                m_state = State::QueryId;
                break;
            case socketwire::ClientName:
                m_state = State::ClientName;
                break;
            case socketwire::Subscription:
                m_state = State::Subscription;
                break;
            default:
                m_state = State::MethodName;
                break;
            }
            break;
        }

        case State::QueryId:
            if (reader.readUInt16(m_message.queryId) != Reader::Done)
                return needMore(reader);
            m_pos = reader.position();
            m_state = m_message.type == socketwire::Reply ? State::Success : State::MethodName;
            break;

        case State::Success: {
            quint8 success = 0;
            if (reader.readUInt8(success) != Reader::Done)
                return needMore(reader);
            if (success > 1)
                return fail("invalid success flag " + QByteArray::number(success));
            m_pos = reader.position();
            m_message.success = success == 1;
            if (!m_message.success)
                return complete();
            m_state = State::ValueType;
            break;
        }

        case State::MethodName:
            if (reader.readNulTerminated(m_message.name) != Reader::Done)
                return needMore(reader);
            m_pos = reader.position();
            m_state = State::ValueType;
            if (m_message.type == socketwire::CallWithReply)
                return Event::CallNameRead;
            break;

        case State::ClientName:
        case State::Subscription: {
            quint8 tag = 0;
            if (reader.readUInt8(tag) != Reader::Done)
                return needMore(reader);
            if (tag < SocketArgument::String || tag > SocketArgument::VariantList)
                return fail("invalid value type " + QByteArray::number(tag));
            SocketArgument value;
            const Reader::Result result = reader.readValue(SocketArgument::eType(tag), value);
            if (result == Reader::NeedMore)
                return needMore(reader);
            if (result == Reader::Broken)
                return fail("broken value of type " + QByteArray::number(tag));
            m_pos = reader.position();
            m_message.arguments.append(std::move(value));
            return complete();
        }

        case State::ValueType: {
            quint8 tag = 0;
            if (reader.readUInt8(tag) != Reader::Done)
                return needMore(reader);
            if (tag == SocketArgument::None) {
                m_pos = reader.position();
                return complete();
            }
            if (tag > SocketArgument::VariantList)
                return fail("unknown argument type " + QByteArray::number(tag));
            if (m_message.arguments.size() >= socketwire::kMaxArguments) {
                LOG_ERROR << "more than 10 arguments!!!" << m_message.name;
                return fail("more than 10 arguments");
            }
            if (m_message.arguments.isEmpty())
                m_message.arguments.reserve(4); // one allocation for the usual few arguments
            m_pos = reader.position();
            m_valueType = SocketArgument::eType(tag);
            m_state = State::Value;
            break;
        }

        case State::Value: {
            SocketArgument value;
            const Reader::Result result = reader.readValue(m_valueType, value);
            if (result == Reader::NeedMore)
                return needMore(reader);
            if (result == Reader::Broken)
                return fail("broken value of type " + QByteArray::number(m_valueType));
            m_pos = reader.position();
            m_message.arguments.append(std::move(value));
            if (m_message.type == socketwire::Reply)
                return complete();
            m_state = State::ValueType;
            break;
        }
        }
    }
}

SocketMessage SocketMessageParser::takeMessage()
{
    SocketMessage message = std::move(m_completed);
    m_completed = SocketMessage();
    return message;
}

QByteArray SocketMessageParser::dumpParsingState() const
{
    return m_justBroken ? m_lastBrokenDump : describeState();
}

void SocketMessageParser::skipMessage()
{
    m_message = SocketMessage();
    startScanning();
}

void SocketMessageParser::reset()
{
    if (m_buffer.capacity() > kShrinkAbove) {
        m_buffer = QByteArray();
        m_buffer.reserve(kInitialCapacity);
    } else {
        m_buffer.resize(0);
    }
    m_pos = 0;
    m_message = SocketMessage();
    m_completed = SocketMessage();
    m_brokenReason.clear();
    m_lastBrokenDump.clear();
    m_justBroken = false;
    startScanning();
}

SocketMessageParser::Event SocketMessageParser::fail(const QByteArray& reason)
{
    m_brokenReason = reason;
    m_lastBrokenDump = describeState();
    LOG_WARNING << "broken message:" << reason << m_lastBrokenDump;
    const bool typeRead = m_state != State::SyncWord && m_state != State::MessageType;
    m_brokenType = typeRead ? int(m_message.type) : -1;
    m_brokenQueryId = typeRead ? m_message.queryId : 0;
    m_message = SocketMessage();
    // Scanning resumes at the item that failed, not after it: when a message was cut short by
    // the next one, that next message's sync word is found again.
    startScanning();
    m_justBroken = true;
    return Event::Broken;
}

SocketMessageParser::Event SocketMessageParser::needMore(const Reader& reader)
{
    m_needUntil = reader.needed();
    if (qint64(m_needUntil) - m_messageStart > socketwire::kMaxMessageSize) {
        m_needUntil = 0;
        return fail("message larger than " + QByteArray::number(socketwire::kMaxMessageSize) + " bytes");
    }
    return Event::NeedMoreBytes;
}

SocketMessageParser::Event SocketMessageParser::complete()
{
    m_completed = std::move(m_message);
    m_message = SocketMessage();
    startScanning();
    return Event::MessageComplete;
}

void SocketMessageParser::startScanning()
{
    m_state = State::SyncWord;
    m_messageStart = m_pos;
    m_needUntil = 0;
}

bool SocketMessageParser::findSyncWord()
{
    const char* data = m_buffer.constData();
    const int size = m_buffer.size();
    const int from = m_pos;
    int p = m_pos;
    bool found = false;
    for (;;) {
        const void* hit = std::memchr(data + p, kSyncBytes[0], size_t(size - p));
        if (!hit) {
            p = size;
            break;
        }
        p = int(static_cast<const char*>(hit) - data);
        if (size - p < 4) {
            m_needUntil = p + 4; // a sync word may be split across appends
            break;
        }
        if (std::memcmp(data + p, kSyncBytes, 4) == 0) {
            found = true;
            break;
        }
        ++p;
    }
    if (p > from)
        LOG_DEBUG << "skipped" << (p - from) << "bytes while looking for a sync word";
    m_messageStart = p;
    m_pos = found ? p + 4 : p;
    return found;
}

QByteArray SocketMessageParser::describeState() const
{
    QByteArray parameters;
    for (const SocketArgument& argument : m_message.arguments) {
        if (!parameters.isEmpty())
            parameters.append(',');
        parameters.append(SocketArgument::typeName(argument.type()));
    }
    const int available = m_buffer.size() - m_messageStart;
    QByteArray content = m_buffer.mid(m_messageStart, qMin(available, kMaxDumpBytes)).toHex(' ');
    if (available > kMaxDumpBytes)
        content.append(" ...");
    return "method name: " + m_message.name + " so far parsed parameters: " + parameters +
           " buffer content: " + content;
}
