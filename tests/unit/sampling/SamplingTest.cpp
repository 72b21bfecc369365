#include "unit/sampling/SamplingTest.h"

#include "diag/SPLogger.h"
#include "support/TestText.h"

namespace varnex::test
{

SamplingTest::SamplingTest()
{
    varnex::Log()->Configure(AnsiFromWide(m_tree.LogsPath()).c_str(), "Varnex");
    varnex::Log()->Level = 4;
    SetSystemLanguage(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US));
}

void SamplingTest::SetSystemLanguage(LANGID nLanguage)
{
    m_redirector.Replace<decltype(::GetSystemDefaultLangID)>("GetSystemDefaultLangID", [=] { return nLanguage; });
}

void SamplingTest::FailConversion(ULONGLONG ullCall)
{
    m_redirector.FailCall("MultiByteToWideChar", ullCall, FailMode::Once, ERROR_NO_UNICODE_TRANSLATION);
}

} // namespace varnex::test
