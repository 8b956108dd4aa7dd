#include <stdlib.h>

#include "bench/json/JsonLibrary.h"
#include "kpl/json/JSON.h"

namespace kpl::bench {

namespace {

void AddContent(const JSONValue& value, Content* content) {
    ++content->values;
    content->AddText(value.AsString().data(), value.AsString().size());
    content->sum += value.AsNumber();
    for (const JSONValue* element : value.AsArray()) {
        AddContent(*element, content);
    }
    for (const auto& member : value.AsObject()) {
        content->AddText(member.first.data(), member.first.size());
        AddContent(*member.second, content);
    }
}

class Ours : public JsonLibrary {
public:
    const char* Name() const override { return "ours"; }

    void ParseAndDestroy(const std::string& text) override {
        if (std::unique_ptr<JSONValue>(JSON::Parse(text.c_str())) == nullptr) {
            abort();
        }
    }

    void Keep(const std::string& text) override { m_value.reset(JSON::Parse(text.c_str())); }
    void Drop() override { m_value.reset(); }
    Content Kept() const override {
        Content content;
        AddContent(*m_value, &content);
        return content;
    }

    size_t Write() override { return m_value->Stringify().size(); }
    std::string Written() override { return m_value->Stringify(); }

private:
    std::unique_ptr<JSONValue> m_value;
};

}  // namespace

std::unique_ptr<JsonLibrary> OurJson() {
    return std::make_unique<Ours>();
}

}  // namespace kpl::bench
