#include "json/ChildDeleter.h"

#include <iterator>
#include <utility>

namespace kpl::json {

// A container with children that are deleted one by one; those of a parsed tree go with their
// blocks.
bool ChildDeleter::HasOwnChildren(const JSONValue* value) {
    return value != nullptr && value->m_holder == JSONValue::Holder::Self && Count(*value) != 0;
}

size_t ChildDeleter::Count(const JSONValue& container) {
    return container.AsArray().size() + container.AsObject().size();
}

// Puts `value` in the place of the first child, which is returned.
JSONValue* ChildDeleter::ExchangeFirst(JSONValue* container, JSONValue* value) {
    JSONValue*& first =
        container->IsArray() ? container->m_array->front() : container->m_object->begin()->second;
    return std::exchange(first, value);
}

JSONValue* ChildDeleter::TakeLast(JSONValue* container) {
    if (container->IsArray()) {
        JSONValue* last = container->m_array->back();
        container->m_array->pop_back();
        return last;
    }
    const auto last = std::prev(container->m_object->end());
    JSONValue* value = last->second;
    container->m_object->erase(last);
    return value;
}

void ChildDeleter::DeleteChildren(JSONValue* container) {
    if (!HasOwnChildren(container)) {
        return;
    }
    JSONValue* open = container;
    JSONValue* child = ExchangeFirst(open, nullptr);
    while (open != nullptr) {
        if (HasOwnChildren(child)) {
            JSONValue* inner = child;
            child = ExchangeFirst(inner, open);
            open = inner;
            continue;
        }
        delete child;
        // Only the way back is left: this container is done.
        while (open != nullptr && Count(*open) == 1) {
            JSONValue* outer = TakeLast(open);
            if (open != container) {
                delete open;
            }
            open = outer;
        }
        child = open != nullptr ? TakeLast(open) : nullptr;
    }
}

}  // namespace kpl::json
