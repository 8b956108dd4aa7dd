#ifndef KPL_COM_IUNKNOWN_H_
#define KPL_COM_IUNKNOWN_H_

namespace kpl::com {

// A reference-counted object whose further interfaces are found by a text id. Whoever makes it
// holds the first reference; the last Release destroys it. Every interface that QueryInterface can
// give derives from this one, first, so that its references can be counted through it. One thread
// at a time, unless the implementation says otherwise.
class IUnknown {
public:
    // Adds a reference and returns the new count.
    virtual unsigned int AddRef() = 0;

    // Drops a reference and returns the new count; at 0 the object is gone.
    virtual unsigned int Release() = 0;

    // Stores the interface with the id `iid` in `*ppv` and adds a reference to it, which the caller
    // releases. False, with `*ppv` untouched, if there is none.
    virtual bool QueryInterface(const char* iid, void** ppv) = 0;

    virtual ~IUnknown() = default;
};

}  // namespace kpl::com

#endif  // KPL_COM_IUNKNOWN_H_
