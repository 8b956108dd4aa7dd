#include "json/TreeBuilder.h"

#include <algorithm>
#include <new>
#include <string>

namespace kpl::json {

// The values follow behind the head.
struct alignas(JSONValue) TreeBuilder::Block {
    Block* next;
    size_t size;  // in bytes, with this head
    char* end;    // of the values

    char* Begin() { return reinterpret_cast<char*>(this + 1); }
};

namespace {

constexpr size_t kFirstBlock = 512;

// Freeing one of this size makes glibc's allocator join the small pieces that it holds back, those
// of strings and members; else the next large tree would be scattered over them.
constexpr size_t kLargestBlock = 65536;

// Keeps the value behind a payload aligned.
constexpr size_t RoundUp(size_t size) {
    return (size + alignof(JSONValue) - 1) / alignof(JSONValue) * alignof(JSONValue);
}

// What follows a value of this type, in bytes.
size_t PayloadSize(JSONType type) {
    switch (type) {
        case JSONType::String:
            return RoundUp(sizeof(std::string));
        case JSONType::Array:
            return RoundUp(sizeof(JSONArray));
        case JSONType::Object:
            return RoundUp(sizeof(JSONObject));
        default:
            return 0;
    }
}

static_assert(alignof(std::string) <= alignof(JSONValue) &&
              alignof(JSONArray) <= alignof(JSONValue) &&
              alignof(JSONObject) <= alignof(JSONValue));
static_assert(sizeof(size_t) <= sizeof(JSONArray), "an open array keeps an index there");

void* Payload(JSONValue* value) {
    return value + 1;
}

// Everything in a block is aligned for one.
JSONValue* ValueAt(char* at) {
    return std::launder(static_cast<JSONValue*>(static_cast<void*>(at)));
}

void DestroyPayload(JSONType type, void* payload) {
    switch (type) {
        case JSONType::String:
            std::destroy_at(static_cast<std::string*>(payload));
            break;
        case JSONType::Array:
            std::destroy_at(static_cast<JSONArray*>(payload));
            break;
        case JSONType::Object:
            std::destroy_at(static_cast<JSONObject*>(payload));
            break;
        default:
            break;
    }
}

}  // namespace

TreeBuilder::~TreeBuilder() {
    if (m_first != nullptr) {
        CloseAll();
        m_last->end = m_end;
        FreeBlocks(m_first);
    }
}

void TreeBuilder::AddBlock() {
    const size_t size = m_last == nullptr ? kFirstBlock : std::min(2 * m_last->size, kLargestBlock);
    auto* block = static_cast<Block*>(::operator new(size));
    *block = {nullptr, size, nullptr};
    if (m_last == nullptr) {
        m_first = block;
    } else {
        m_last->next = block;
        m_last->end = m_end;
    }
    m_last = block;
    m_end = block->Begin();
    m_limit = reinterpret_cast<char*>(block) + size;
}

JSONValue* TreeBuilder::Add(JSONType type, size_t payloadSize) {
    const size_t size = sizeof(JSONValue) + payloadSize;
    if (static_cast<size_t>(m_limit - m_end) < size) {
        AddBlock();
    }
    auto* value = new (m_end) JSONValue;
    value->m_type = type;
    m_end += size;
    return value;
}

JSONValue* TreeBuilder::AddNull() {
    return Add(JSONType::Null, 0);
}

JSONValue* TreeBuilder::AddBool(bool value) {
    JSONValue* added = Add(JSONType::Bool, 0);
    added->m_bool = value;
    return added;
}

JSONValue* TreeBuilder::AddNumber(double value) {
    JSONValue* added = Add(JSONType::Number, 0);
    added->m_number = value;
    return added;
}

JSONValue* TreeBuilder::AddString(const char* begin, const char* end) {
    JSONValue* added = Add(JSONType::String, PayloadSize(JSONType::String));
    added->m_string = new (Payload(added)) std::string(begin, end);
    return added;
}

JSONValue* TreeBuilder::OpenContainer(JSONType type) {
    JSONValue* added = Add(type, PayloadSize(type));
    added->m_parent = m_open;
    m_open = added;
    return added;
}

JSONValue* TreeBuilder::OpenArray(size_t firstElement) {
    JSONValue* added = OpenContainer(JSONType::Array);
    new (Payload(added)) size_t(firstElement);
    return added;
}

JSONValue* TreeBuilder::OpenObject() {
    JSONValue* added = OpenContainer(JSONType::Object);
    new (Payload(added)) JSONObject;
    return added;
}

JSONObject& TreeBuilder::OpenMembers() {
    return *static_cast<JSONObject*>(Payload(m_open));
}

void TreeBuilder::CloseArray(std::vector<JSONValue*>* waiting) {
    void* payload = Payload(m_open);
    const size_t first = *static_cast<size_t*>(payload);
    const auto begin = waiting->begin() + static_cast<std::ptrdiff_t>(first);
    JSONArray* array = new (payload) JSONArray(begin, waiting->end());
    waiting->resize(first);
    JSONValue* closed = m_open;
    m_open = closed->m_parent;
    closed->m_array = array;
}

void TreeBuilder::CloseObject() {
    JSONValue* closed = m_open;
    m_open = closed->m_parent;
    closed->m_object = static_cast<JSONObject*>(Payload(closed));
}

// Nobody will look into the containers that are still open; they only have to be destructible.
void TreeBuilder::CloseAll() {
    for (; m_open != nullptr; m_open = m_open->m_parent) {
        if (m_open->IsArray()) {
            new (Payload(m_open)) JSONArray;
        }
    }
}

JSONValue* TreeBuilder::Finish() {
    JSONValue* first = ValueAt(m_first->Begin());
    auto* root = new JSONValue;
    root->m_type = first->m_type;
    root->m_holder = JSONValue::Holder::Tree;
    if (first->IsArray()) {
        root->m_array = first->m_array;
    } else {
        root->m_object = first->m_object;
    }
    m_last->end = m_end;
    m_first = nullptr;
    return root;
}

void TreeBuilder::Free(const JSONValue& root) {
    void* payload = root.IsArray() ? static_cast<void*>(root.m_array) : root.m_object;
    FreeBlocks(reinterpret_cast<Block*>(static_cast<JSONValue*>(payload) - 1) - 1);
}

void TreeBuilder::DestroyValues(Block* block) {
    for (char* at = block->Begin(); at < block->end;) {
        JSONValue* value = ValueAt(at);
        const JSONType type = value->m_type;
        DestroyPayload(type, Payload(value));
        at += sizeof(JSONValue) + PayloadSize(type);
    }
}

void TreeBuilder::FreeBlocks(Block* block) {
    while (block != nullptr) {
        Block* next = block->next;
        DestroyValues(block);
        ::operator delete(block);
        block = next;
    }
}

}  // namespace kpl::json
