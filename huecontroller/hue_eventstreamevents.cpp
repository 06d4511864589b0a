#include "hue_eventstreamevents.h"

#include "common/logginginterface.h"

namespace hue {

namespace {

std::string indented(const minijson::CEntity& entity)
{
    return entity.ToString(true, "  ");
}

// Appends the usable resources of one event object to `batch`.
void readEvent(const minijson::CObject& event, StreamEventBatch& batch)
{
    if (!event.Contains("data") || !event.Contains("type")) {
        LOG_ERROR << "Event is missing a required key" << indented(event);
        return;
    }
    const minijson::CEntity& typeValue = *event.Find("type");
    const std::string type = typeValue.IsString() ? typeValue.StringValue() : typeValue.ToString();
    if (type == "error") {
        LOG_ERROR << "got an error event in stream:" << indented(event);
        return;
    }
    if (type != "update" && type != "add" && type != "delete") {
        LOG_ERROR << "got unknown event type" << type << indented(event);
        return;
    }
    const minijson::CArray* data = event.GetArray("data");
    if (!data) {
        LOG_ERROR << "got event with non-array data:" << indented(event);
        return;
    }
    StreamEvent out;
    out.type = type;
    for (int i = 0; i < data->Count(); ++i) {
        const minijson::CEntity& element = data->EntityAtIndex(i);
        if (element.IsObject())
            out.resources.push_back(&element.Object());
        else
            LOG_ERROR << "got non-object entry in data" << i << "of event:" << indented(event);
    }
    batch.events.push_back(std::move(out));
}

} // namespace

StreamEventBatch parseStreamEvents(const QByteArray& data, bool dump)
{
    StreamEventBatch batch;
    if (data.isEmpty())
        return batch;
    try {
        batch.document = minijson::CParser::Parse(data.constData(), data.size());
    } catch (const minijson::CException& e) {
        LOG_ERROR << "JSON parse error in event stream:" << e.what();
        return batch;
    }
    if (!batch.document->IsArray()) {
        LOG_ERROR << "Eventstream entry is not an array:"
                  << LogExcerpt(QByteArray::fromStdString(batch.document->ToString()));
        batch.document.reset();
        return batch;
    }
    const minijson::CArray& events = batch.document->Array();
    if (dump)
        LOG_INFO << "event stream message:" << indented(events);
    for (int i = 0; i < events.Count(); ++i) {
        const minijson::CEntity& element = events.EntityAtIndex(i);
        if (element.IsObject())
            readEvent(element.Object(), batch);
        else
            LOG_ERROR << "Eventstream array entry is not an object:" << element.ToString();
    }
    return batch;
}

} // namespace hue
