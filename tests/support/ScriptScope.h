#pragma once

namespace varnex::test
{

// While it lives, this thread's calls through redirected imports reach the real functions and are not counted. Every
// script runs inside one, so a script calls "the real one" simply by its name; so does the support code itself.
class UnscriptedScope
{
public:
    UnscriptedScope() noexcept;
    ~UnscriptedScope();
    UnscriptedScope(const UnscriptedScope&) = delete;
    UnscriptedScope& operator=(const UnscriptedScope&) = delete;

private:
    bool m_bWasUnscripted;
};

// The opposite, for a script that calls back into the code under test (a CreateThread that runs the thread's body at
// once): inside it the redirected imports answer again.
class ScriptedScope
{
public:
    ScriptedScope() noexcept;
    ~ScriptedScope();
    ScriptedScope(const ScriptedScope&) = delete;
    ScriptedScope& operator=(const ScriptedScope&) = delete;

private:
    bool m_bWasUnscripted;
};

// Whether this thread is inside an UnscriptedScope. Keeps the last error.
bool IsUnscripted() noexcept;

} // namespace varnex::test
