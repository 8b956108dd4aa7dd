#ifndef KPL_JSON_TREEPARSER_H_
#define KPL_JSON_TREEPARSER_H_

#include <string>
#include <vector>

#include "json/TreeBuilder.h"
#include "kpl/json/JSONValue.h"

namespace kpl::json {

// Parses one array or object with everything in it. Works through the text in one loop: what is
// still open is kept in the tree itself, so the depth of nesting costs no stack.
class TreeParser {
public:
    // `text` stands on the opening bracket.
    explicit TreeParser(const char* text) : m_at(text) {}

    // Returns the new tree, or null when the text is not well formed.
    JSONValue* Parse();

    // Behind what was parsed, or where reading ended.
    const char* At() const { return m_at; }

private:
    bool ParseContents();
    bool ParseElement();
    bool ParseKey();
    bool EnterContainer();
    bool EndElement();
    bool AtClosingBracket() const { return *m_at == (m_inObject ? '}' : ']'); }
    void LeaveContainer();
    void Put(JSONValue* value);

    const char* m_at;
    TreeBuilder m_tree;
    bool m_inObject = false;             // the innermost open container is an object
    JSONValue** m_slot = nullptr;        // where the value of the last key belongs
    std::vector<JSONValue*> m_elements;  // the root, then those of all open arrays
    std::string m_unescaped;             // the last string that had an escape
};

}  // namespace kpl::json

#endif  // KPL_JSON_TREEPARSER_H_
