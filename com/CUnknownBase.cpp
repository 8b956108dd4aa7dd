#include "kpl/com/CUnknownBase.h"

namespace kpl::com {

CUnknownBase::CUnknownBase() : m_refCount(1) {}

CUnknownBase::~CUnknownBase() = default;

unsigned int CUnknownBase::AddRef() {
    return m_refCount == 0 ? 0 : ++m_refCount;
}

unsigned int CUnknownBase::Release() {
    if (m_refCount == 0) {
        return 0;
    }
    const unsigned int left = --m_refCount;
    if (left == 0) {
        delete this;
    }
    return left;
}

bool CUnknownBase::QueryInterface(const char* iid, void** ppv) {
    if (ppv == nullptr || !FindInterface(iid, ppv)) {
        return false;
    }
    static_cast<IUnknown*>(*ppv)->AddRef();
    return true;
}

bool CUnknownBase::FindInterface(const char*, void**) {
    return false;
}

}  // namespace kpl::com
