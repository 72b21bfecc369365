#pragma once

#include "FaultTarget.h"

#include "support/ImportRedirector.h"

#include <vector>

namespace varnex::test
{

// Gates in front of the methods of the scripted WMI objects, which share their method tables. The redirector's module
// must have its CoCreateInstance scripted by a ScriptedWmi that has at least one object.
class WmiMethods
{
public:
    explicit WmiMethods(HMODULE hModule);
    ~WmiMethods();
    WmiMethods(const WmiMethods&) = delete;
    WmiMethods& operator=(const WmiMethods&) = delete;

    std::vector<FaultTarget> Targets() const;

private:
    struct Method
    {
        const char* pszName;
        void** ppSlot;
        CallGate* pGate;
    };
    template <class Function>
    void Engage(const char* pszName, Function& pfnMethod);

    std::vector<Method> m_methods;
};

} // namespace varnex::test
