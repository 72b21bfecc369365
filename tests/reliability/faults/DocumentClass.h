#pragma once

#include "common/Com.h"

#include <windows.h>

#include <unknwn.h>

namespace varnex::test
{

// Keeps the class of the documents at hand for as long as it lives: finding it in the registry anew for each document
// takes a third of a life's time. It stands in front of this program's own CoCreateInstance, to which the scripts of the
// module's lead. COM must be initialised.
class DocumentClass
{
public:
    DocumentClass();
    ~DocumentClass();
    DocumentClass(const DocumentClass&) = delete;
    DocumentClass& operator=(const DocumentClass&) = delete;

private:
    static HRESULT STDAPICALLTYPE Create(REFCLSID clsid, IUnknown* pOuter, DWORD dwContext, REFIID iid,
                                         void** ppObject);

    ComPtr<IClassFactory> m_class;
    void** m_ppSlot = nullptr;
    void* m_pOriginal = nullptr;
    static inline DocumentClass* s_pNewest = nullptr;
};

} // namespace varnex::test
