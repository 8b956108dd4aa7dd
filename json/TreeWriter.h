#ifndef KPL_JSON_TREEWRITER_H_
#define KPL_JSON_TREEWRITER_H_

#include <string>
#include <vector>

#include "json/TextWriter.h"
#include "kpl/json/JSONValue.h"

namespace kpl::json {

// Writes a tree as compact text, in one loop: the way back from any depth is kept on the heap.
class TreeWriter {
public:
    std::string Write(const JSONValue& root);

private:
    void Begin(const JSONValue* value);
    bool Next(const JSONValue** child);
    bool NextElement(const JSONArray& elements, const JSONValue** child);
    bool NextMember(const JSONObject& members, const JSONValue** child);

    TextWriter m_text;
    std::vector<const JSONValue*> m_open;               // containers whose end is not written yet
    std::vector<const JSONValue* const*> m_elements;    // the next one of each open array
    std::vector<JSONObject::const_iterator> m_members;  // the next one of each open object
};

}  // namespace kpl::json

#endif  // KPL_JSON_TREEWRITER_H_
