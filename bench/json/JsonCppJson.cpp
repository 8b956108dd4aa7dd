#include <json/json.h>
#include <stdlib.h>

#include "bench/json/JsonLibrary.h"

namespace kpl::bench {

namespace {

void AddContent(const Json::Value& value, Content* content) {
    ++content->values;
    const char* begin = nullptr;
    const char* end = nullptr;
    if (value.isString() && value.getString(&begin, &end)) {
        content->AddText(begin, static_cast<size_t>(end - begin));
    }
    content->sum += value.isNumeric() ? value.asDouble() : 0;
    for (auto member = value.begin(); member != value.end(); ++member) {
        if (value.isObject()) {
            const std::string key = member.name();
            content->AddText(key.data(), key.size());
        }
        AddContent(*member, content);
    }
}

// Reader and writer are made once. No comments are collected, no spaces are written, and a number
// gets six digits as in ours.
class JsonCpp : public JsonLibrary {
public:
    JsonCpp() {
        Json::CharReaderBuilder readers;
        readers["collectComments"] = false;
        m_reader.reset(readers.newCharReader());
        m_writers["indentation"] = "";
        m_writers["precision"] = 6;
        m_writers["emitUTF8"] = true;
    }

    const char* Name() const override { return "jsoncpp"; }

    void ParseAndDestroy(const std::string& text) override {
        Json::Value value;
        Parse(text, &value);
    }

    void Keep(const std::string& text) override { Parse(text, &m_value); }
    void Drop() override { m_value = Json::Value(); }
    Content Kept() const override {
        Content content;
        AddContent(m_value, &content);
        return content;
    }

    size_t Write() override { return Written().size(); }
    std::string Written() override { return Json::writeString(m_writers, m_value); }

private:
    void Parse(const std::string& text, Json::Value* value) {
        if (!m_reader->parse(text.data(), text.data() + text.size(), value, nullptr)) {
            abort();
        }
    }

    std::unique_ptr<Json::CharReader> m_reader;
    Json::StreamWriterBuilder m_writers;
    Json::Value m_value;
};

}  // namespace

std::unique_ptr<JsonLibrary> JsonCppJson() {
    return std::make_unique<JsonCpp>();
}

}  // namespace kpl::bench
