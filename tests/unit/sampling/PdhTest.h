#pragma once

#include "support/ScriptedPdh.h"
#include "unit/sampling/SamplingTest.h"

#include <windows.h>

#include <pdh.h>

#include <string>
#include <vector>

namespace varnex::test
{

// The number of a PDH status as it is scripted and logged.
constexpr PDH_STATUS PdhStatus(unsigned nCode)
{
    return static_cast<PDH_STATUS>(nCode);
}

// What the tests of the samplers that read performance counters share.
class PdhTest : public SamplingTest
{
protected:
    // The functions that were called, in order.
    std::vector<std::string> PdhFunctions() const;
    // The counter was removed before the query was closed, each once, as the last calls of all.
    void CheckCleanedUp() const;
    void CheckNothingOpen() const;

    ScriptedPdh m_pdh{m_redirector};
};

// Answers one enumeration of either width with an instance "0", and keeps what it was asked:
//
//     EnumerationScript<char> script(redirector, "PdhEnumObjectItemsA");
template <class Character>
class EnumerationScript
{
public:
    EnumerationScript(ImportRedirector& redirector, const char* pszFunction)
    {
        using Text = const Character*;
        redirector.Replace<PDH_STATUS(Text, Text, Text, Character*, LPDWORD, Character*, LPDWORD, DWORD, DWORD)>(
            pszFunction,
            [this](Text pszSource, Text pszMachine, Text, Character*, LPDWORD pcchCounters, Character* pszInstances,
                   LPDWORD pcchInstances, DWORD dwDetail, DWORD dwFlags)
            {
                m_bLocal = pszSource == nullptr && pszMachine == nullptr;
                m_numbers = {*pcchCounters, *pcchInstances, dwDetail, dwFlags};
                pszInstances[0] = '0';
                pszInstances[1] = pszInstances[2] = Character{};
                return PDH_STATUS{ERROR_SUCCESS};
            });
    }

    // This machine and the advanced detail, with buffers of 2048 characters each.
    void CheckAsked() const
    {
        CHECK(m_bLocal);
        CHECK(m_numbers == std::vector<DWORD>{2048, 2048, 200, 0});
    }

private:
    bool m_bLocal = false;
    std::vector<DWORD> m_numbers;
};

} // namespace varnex::test
