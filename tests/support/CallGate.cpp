#include "support/CallGate.h"

#include "support/ThreadState.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <new>
#include <stdexcept>
#include <utility>

namespace varnex::test
{

// --- the machine code -----------------------------------------------------------------------------------------------

// What a gate's code calls to learn where the call goes on.
struct CallRouter
{
    static void* Route(CallGate* pGate) noexcept { return pGate->Route(); }
    // Stands in for a function that is to fail; every integer or pointer result travels in one register.
    static ULONGLONG AnswerFailure() noexcept
    {
        const CallGate& gate = TakeEnteredGate();
        const ULONGLONG ullResult = gate.m_ullFailResult.load();
        if (!gate.m_bKeepsLastError.load())
        {
            WriteLastError(gate.m_dwFailError.load());
        }
        return ullResult;
    }
};

namespace
{

// Saves the argument registers, asks CallRouter::Route, restores them and jumps to its answer: the stack is then as the
// caller left it, so any number of arguments passes.
// clang-format off
constexpr std::uint8_t CODE_TEMPLATE[] = {
    0x51,                                     // push rcx
    0x52,                                     // push rdx
    0x41, 0x50,                               // push r8
    0x41, 0x51,                               // push r9
    0x48, 0x83, 0xEC, 0x68,                   // sub rsp, 0x68
    0xF3, 0x0F, 0x7F, 0x44, 0x24, 0x20,       // movdqu [rsp+0x20], xmm0
    0xF3, 0x0F, 0x7F, 0x4C, 0x24, 0x30,       // movdqu [rsp+0x30], xmm1
    0xF3, 0x0F, 0x7F, 0x54, 0x24, 0x40,       // movdqu [rsp+0x40], xmm2
    0xF3, 0x0F, 0x7F, 0x5C, 0x24, 0x50,       // movdqu [rsp+0x50], xmm3
    0x48, 0xB9, 0,    0,    0,    0,    0, 0, 0, 0, // mov rcx, gate
    0x48, 0xB8, 0,    0,    0,    0,    0, 0, 0, 0, // mov rax, CallRouter::Route
    0xFF, 0xD0,                               // call rax
    0xF3, 0x0F, 0x6F, 0x44, 0x24, 0x20,       // movdqu xmm0, [rsp+0x20]
    0xF3, 0x0F, 0x6F, 0x4C, 0x24, 0x30,       // movdqu xmm1, [rsp+0x30]
    0xF3, 0x0F, 0x6F, 0x54, 0x24, 0x40,       // movdqu xmm2, [rsp+0x40]
    0xF3, 0x0F, 0x6F, 0x5C, 0x24, 0x50,       // movdqu xmm3, [rsp+0x50]
    0x48, 0x83, 0xC4, 0x68,                   // add rsp, 0x68
    0x41, 0x59,                               // pop r9
    0x41, 0x58,                               // pop r8
    0x5A,                                     // pop rdx
    0x59,                                     // pop rcx
    0xFF, 0xE0,                               // jmp rax
};
// clang-format on
constexpr std::size_t GATE_OFFSET = 36;
constexpr std::size_t ROUTE_OFFSET = 46;
constexpr std::size_t CODE_BYTES = 128;
static_assert(sizeof(CODE_TEMPLATE) <= CODE_BYTES);
static_assert(CODE_TEMPLATE[GATE_OFFSET - 1] == 0xB9 && CODE_TEMPLATE[ROUTE_OFFSET - 1] == 0xB8);

void WriteCode(void* pCode, CallGate* pGate) noexcept
{
    void* (*const pfnRoute)(CallGate*) noexcept = &CallRouter::Route;
    auto* pBytes = static_cast<std::uint8_t*>(pCode);
    std::memcpy(pBytes, CODE_TEMPLATE, sizeof(CODE_TEMPLATE));
    std::memcpy(pBytes + GATE_OFFSET, &pGate, sizeof(pGate));
    std::memcpy(pBytes + ROUTE_OFFSET, &pfnRoute, sizeof(pfnRoute));
    FlushInstructionCache(GetCurrentProcess(), pCode, CODE_BYTES);
}

// All gates ever made. Never destroyed: code may be reached until the last thread is gone.
struct GatePool
{
    SlimLock lock;
    std::map<void*, std::vector<CallGate*>> freeGates; // by original: a late caller still reaches the same function
    std::uint8_t* pNextCode = nullptr;
    std::size_t cbCodeLeft = 0;

    void* NewCode()
    {
        constexpr std::size_t CHUNK_BYTES = 64 * 1024;
        if (cbCodeLeft < CODE_BYTES)
        {
            pNextCode = static_cast<std::uint8_t*>(
                VirtualAlloc(nullptr, CHUNK_BYTES, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
            if (pNextCode == nullptr)
            {
                throw std::bad_alloc();
            }
            cbCodeLeft = CHUNK_BYTES;
        }
        void* pCode = pNextCode;
        pNextCode += CODE_BYTES;
        cbCodeLeft -= CODE_BYTES;
        return pCode;
    }
};

GatePool& Pool()
{
    static GatePool& pool = *new GatePool;
    return pool;
}

struct TroubleList
{
    SlimLock lock;
    std::vector<std::string> texts;
};

TroubleList& Troubles()
{
    static TroubleList& troubles = *new TroubleList;
    return troubles;
}

} // namespace

// --- gates ----------------------------------------------------------------------------------------------------------

CallGate& CallGate::Take(void* pOriginal)
{
    const UnscriptedScope unscripted;
    GatePool& pool = Pool();
    const SlimLockHold hold(pool.lock);
    auto& freeGates = pool.freeGates[pOriginal];
    if (!freeGates.empty())
    {
        CallGate& gate = *freeGates.back();
        freeGates.pop_back();
        gate.m_ullCalls = 0;
        gate.m_ullFailures = 0;
        return gate;
    }
    void* pCode = pool.NewCode();
    auto* pGate = new CallGate(pCode, pOriginal);
    WriteCode(pCode, pGate);
    return *pGate;
}

void CallGate::GiveBack() noexcept
{
    const UnscriptedScope unscripted;
    ClearFailure();
    ClearScript();
    GatePool& pool = Pool();
    const SlimLockHold hold(pool.lock);
    pool.freeGates[m_pOriginal].push_back(this);
}

void* CallGate::Route() noexcept
{
    if (ReadUnscripted())
    {
        return m_pOriginal;
    }
    ++m_ullCalls;
    if (TakesFailure())
    {
        WriteEnteredGate(this);
        return reinterpret_cast<void*>(&CallRouter::AnswerFailure);
    }
    void* pDispatcher = m_pDispatcher.load();
    if (pDispatcher == nullptr)
    {
        return m_pOriginal;
    }
    WriteEnteredGate(this);
    return pDispatcher;
}

bool CallGate::TakesFailure() noexcept
{
    if (!m_bFails.load())
    {
        return false;
    }
    const ULONGLONG ullCall = ++m_ullCallsSinceRule;
    const ULONGLONG ullWanted = m_ullFailAtCall.load();
    if (ullCall == ullWanted || (ullCall > ullWanted && m_bFailsOn.load()))
    {
        ++m_ullFailures;
        return true;
    }
    return false;
}

void CallGate::SetFailure(ULONGLONG ullCall, FailMode mode, const CallFailure& failure) noexcept
{
    m_bFails = false;
    m_ullFailAtCall = ullCall;
    m_bFailsOn = mode == FailMode::FromThereOn;
    m_ullCallsSinceRule = 0;
    m_ullFailures = 0;
    m_ullFailResult = failure.ullResult;
    m_dwFailError = failure.dwLastError;
    m_bKeepsLastError = failure.bKeepsLastError;
    m_bFails = true;
}

void CallGate::ClearFailure() noexcept
{
    m_bFails = false;
}

CallGate::AnyScript CallGate::Script() noexcept
{
    const SlimLockHold hold(m_lock);
    return m_script;
}

void CallGate::SetScript(AnyScript script, void* pDispatcher) noexcept
{
    {
        const SlimLockHold hold(m_lock);
        m_script.swap(script);
    }
    m_pDispatcher = pDispatcher;
}

void CallGate::ClearScript() noexcept
{
    const UnscriptedScope unscripted;
    m_pDispatcher = nullptr;
    AnyScript script;
    const SlimLockHold hold(m_lock);
    m_script.swap(script);
}

// --- inside scripts -------------------------------------------------------------------------------------------------

CallGate& TakeEnteredGate() noexcept
{
    return *static_cast<CallGate*>(ReadEnteredGate());
}

ScriptRun::ScriptRun(CallGate& gate) noexcept : m_bWasUnscripted(ReadUnscripted())
{
    const DWORD dwError = ReadLastError();
    WriteUnscripted(true);
    m_script = gate.Script();
    WriteLastError(dwError);
}

ScriptRun::~ScriptRun()
{
    const DWORD dwError = ReadLastError();
    m_script.reset();
    WriteUnscripted(m_bWasUnscripted);
    WriteLastError(dwError);
}

void ReportScriptTrouble(const std::string& text) noexcept
{
    const UnscriptedScope unscripted;
    TroubleList& troubles = Troubles();
    const SlimLockHold hold(troubles.lock);
    try
    {
        troubles.texts.push_back(text);
    }
    catch (const std::bad_alloc&)
    {
        // The test is short of memory by its own doing; the answer of zero tells enough.
    }
}

std::vector<std::string> TakeScriptTroubles()
{
    const UnscriptedScope unscripted;
    TroubleList& troubles = Troubles();
    const SlimLockHold hold(troubles.lock);
    return std::exchange(troubles.texts, {});
}

} // namespace varnex::test
