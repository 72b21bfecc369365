#include "unit/sampling/SamplingTest.h"

#include "diag/SPLogger.h"
#include "support/TestText.h"

#include <utility>

namespace varnex::test
{

SamplingTest::SamplingTest()
{
    varnex::Log()->Configure(AnsiFromWide(m_tree.LogsPath()).c_str(), "Varnex");
    varnex::Log()->Level = 4;
    SetSystemLanguage(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US));
}

void SamplingTest::CheckLog(const std::vector<Message>& messages) const
{
    const LogFile log = ReadLog();
    CHECK(log.Lines().size() == messages.size());
    std::vector<HasLinesInOrder::Wanted> wanted;
    for (const Message& message : messages)
    {
        wanted.push_back({message.nLevel, message.text});
    }
    CHECK_THAT(log, HasLinesInOrder(std::move(wanted)));
}

void SamplingTest::CheckNoLog() const
{
    CHECK(ReadLog().Bytes().empty());
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
