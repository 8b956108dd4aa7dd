// Its own ways to go through strings and spaces by sixteen bytes, where the processor has them.
#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#elif defined(__ARM_NEON)
#define RAPIDJSON_NEON
#endif
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <stdlib.h>

#include "bench/json/JsonLibrary.h"

namespace kpl::bench {

namespace {

void AddContent(const rapidjson::Value& value, Content* content) {
    ++content->values;
    if (value.IsString()) {
        content->AddText(value.GetString(), value.GetStringLength());
    }
    content->sum += value.IsNumber() ? value.GetDouble() : 0;
    if (value.IsArray()) {
        for (const auto& element : value.GetArray()) {
            AddContent(element, content);
        }
    }
    if (value.IsObject()) {
        for (const auto& member : value.GetObject()) {
            content->AddText(member.name.GetString(), member.name.GetStringLength());
            AddContent(member.value, content);
        }
    }
}

class Rapid : public JsonLibrary {
public:
    const char* Name() const override { return "RapidJSON"; }

    void ParseAndDestroy(const std::string& text) override {
        rapidjson::Document document;
        Parse(text, &document);
    }

    void Keep(const std::string& text) override {
        m_document = std::make_unique<rapidjson::Document>();
        Parse(text, m_document.get());
    }
    void Drop() override { m_document.reset(); }
    Content Kept() const override {
        Content content;
        AddContent(*m_document, &content);
        return content;
    }

    size_t Write() override {
        rapidjson::StringBuffer buffer;
        WriteTo(&buffer);
        return buffer.GetSize();
    }
    std::string Written() override {
        rapidjson::StringBuffer buffer;
        WriteTo(&buffer);
        return std::string(buffer.GetString(), buffer.GetSize());
    }

private:
    static void Parse(const std::string& text, rapidjson::Document* document) {
        document->Parse(text.data(), text.size());
        if (document->HasParseError()) {
            abort();
        }
    }
    void WriteTo(rapidjson::StringBuffer* buffer) const {
        rapidjson::Writer<rapidjson::StringBuffer> writer(*buffer);
        m_document->Accept(writer);
    }

    std::unique_ptr<rapidjson::Document> m_document;
};

}  // namespace

std::unique_ptr<JsonLibrary> RapidJson() {
    return std::make_unique<Rapid>();
}

}  // namespace kpl::bench
