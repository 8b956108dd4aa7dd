#ifndef KPL_JSON_CHILDDELETER_H_
#define KPL_JSON_CHILDDELETER_H_

#include <stddef.h>

#include "kpl/json/JSONValue.h"

namespace kpl::json {

// Deletes what hangs below a container that a user built, of any depth, without recursion and
// without memory of its own: while a container is being emptied, its first place keeps the way back
// to the one around it.
class ChildDeleter {
public:
    // Leaves the container empty.
    static void DeleteChildren(JSONValue* container);

private:
    static bool HasOwnChildren(const JSONValue* value);
    static size_t Count(const JSONValue& container);
    static JSONValue* ExchangeFirst(JSONValue* container, JSONValue* value);
    static JSONValue* TakeLast(JSONValue* container);
    static JSONValue* NextToDelete(JSONValue** container);
};

}  // namespace kpl::json

#endif  // KPL_JSON_CHILDDELETER_H_
