#include <nlohmann/json.hpp>

#include "bench/json/JsonLibrary.h"
#include "bench/support/Contest.h"

namespace kpl::bench {

namespace {

void AddContent(const nlohmann::json& value, Content* content) {
    ++content->values;
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        content->AddText(text.data(), text.size());
    }
    content->sum += value.is_number() ? value.get<double>() : 0;
    if (value.is_array()) {
        for (const auto& element : value) {
            AddContent(element, content);
        }
    }
    if (value.is_object()) {
        for (const auto& member : value.items()) {
            content->AddText(member.key().data(), member.key().size());
            AddContent(member.value(), content);
        }
    }
}

class Nlohmann : public JsonLibrary {
public:
    const char* Name() const override { return "nlohmann/json"; }

    void ParseAndDestroy(const std::string& text) override {
        const nlohmann::json value = nlohmann::json::parse(text);
        bench::Keep(&value);
    }

    void Keep(const std::string& text) override { m_value = nlohmann::json::parse(text); }
    void Drop() override { m_value = nullptr; }
    Content Kept() const override {
        Content content;
        AddContent(m_value, &content);
        return content;
    }

    size_t Write() override { return m_value.dump().size(); }
    std::string Written() override { return m_value.dump(); }

private:
    nlohmann::json m_value;
};

}  // namespace

std::unique_ptr<JsonLibrary> NlohmannJson() {
    return std::make_unique<Nlohmann>();
}

}  // namespace kpl::bench
