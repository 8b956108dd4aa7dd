#ifndef KPL_COM_CUNKNOWNBASE_H_
#define KPL_COM_CUNKNOWNBASE_H_

#include "kpl/Export.h"
#include "kpl/com/IUnknown.h"

namespace kpl::com {

// The counting for objects made with new; they are released, never deleted. The counter is a plain
// number: references are taken and dropped by one thread at a time.
class KPL_EXPORT CUnknownBase : public IUnknown {
public:
    // Starts with one reference, the creator's.
    CUnknownBase();
    ~CUnknownBase() override;
    CUnknownBase(const CUnknownBase&) = delete;
    CUnknownBase& operator=(const CUnknownBase&) = delete;

    // Both return 0 and change nothing once the count is 0: an object that is being destroyed is
    // not revived.
    unsigned int AddRef() override;
    unsigned int Release() override;

    // False too for a null `ppv`.
    bool QueryInterface(const char* iid, void** ppv) override;

protected:
    // The interface with the id `iid`: stores it in `*ppv`, as a pointer to its IUnknown, without
    // adding a reference, and returns true. False, with `*ppv` untouched, if there is none, as
    // here.
    virtual bool FindInterface(const char* iid, void** ppv);

private:
    unsigned int m_refCount;
};

}  // namespace kpl::com

#endif  // KPL_COM_CUNKNOWNBASE_H_
