#ifndef KPL_JSON_TREEBUILDER_H_
#define KPL_JSON_TREEBUILDER_H_

#include <stddef.h>

#include <vector>

#include "kpl/json/JSONValue.h"

namespace kpl::json {

// Makes the values of one parsed tree.
//
// They lie back to back in a chain of blocks, each value followed by the string or container that
// it holds, so that an allocation serves many values, and the end of a tree is a walk along its
// blocks that needs neither recursion nor a stack. A container that is still open holds the one
// around it instead of its elements; that chain is all that is needed to come back from any depth.
class TreeBuilder {
public:
    TreeBuilder() = default;
    // Frees all values unless Finish handed them over.
    ~TreeBuilder();
    TreeBuilder(const TreeBuilder&) = delete;
    TreeBuilder& operator=(const TreeBuilder&) = delete;

    JSONValue* AddNull();
    JSONValue* AddBool(bool value);
    JSONValue* AddNumber(double value);
    JSONValue* AddString(const char* begin, const char* end);

    // A container inside the one that is open now; it becomes the open one. An array's elements
    // wait in the caller's vector until it is closed; `firstElement` is the index of its first one
    // there.
    JSONValue* OpenArray(size_t firstElement);
    JSONValue* OpenObject();

    // The innermost open container; null when there is none.
    const JSONValue* Open() const { return m_open; }

    // The members of the open object, which stay where they are.
    JSONObject& OpenMembers();

    // The container around the closed one is the open one then. An array takes its elements off the
    // end of `waiting`.
    void CloseArray(std::vector<JSONValue*>* waiting);
    void CloseObject();

    // Hands all values over to a new root, which is like the first value that was added.
    JSONValue* Finish();

    // Frees all values of the tree with this root.
    static void Free(const JSONValue& root);

private:
    struct Block;

    JSONValue* Add(JSONType type, size_t payloadSize);
    void AddBlock();
    JSONValue* OpenContainer(JSONType type);
    void CloseAll();
    static void DestroyValues(Block* block);
    static void FreeBlocks(Block* block);

    Block* m_first = nullptr;
    Block* m_last = nullptr;
    char* m_end = nullptr;    // of the values in the last block
    char* m_limit = nullptr;  // of the last block
    JSONValue* m_open = nullptr;
};

}  // namespace kpl::json

#endif  // KPL_JSON_TREEBUILDER_H_
