#include "alerting/AlertPolicy.h"

#include "config/XmlConfig.h"
#include "diag/SPLogger.h"

namespace varnex
{

namespace
{

int ReadPolicyValue(const AlertPolicy& policy, ConfType confType, int nDefault, const wchar_t* pwszFailure)
{
    const int nValue = GetAlertConfValue(policy.nAlertType, static_cast<unsigned>(confType));
    if (nValue != 0 && nValue != -1)
    {
        return nValue;
    }
    Log()->Level2W(pwszFailure, policy.pwszClass, nValue, nDefault);
    return nDefault;
}

} // namespace

void ReadAlertPolicy(CAlertReachPKIThread& monitor, const AlertPolicy& policy)
{
    const int nInterval = ReadPolicyValue(
        policy, ConfType::Interval, policy.nDefaultInterval,
        L"%s::UpdateAlertPolicy -- Get Interval policy fail, return value(%d), using default value(%d)");
    const int nThreshold = ReadPolicyValue(
        policy, ConfType::Threshold, policy.nDefaultThreshold,
        L"%s::UpdateAlertPolicy -- Get threshold policy fail, return value(%d), using default value(%d)");
    const int nSamplingAmount = ReadPolicyValue(
        policy, ConfType::SamplingAmount, policy.nDefaultSamplingAmount,
        L"%s::UpdateAlertPolicy -- Get SamplingAmount policy fail, return value(%d), using default value(%d)");
    const int nMaxAlertNum = ReadPolicyValue(
        policy, ConfType::MaxAlertNum, policy.nDefaultMaxAlertNum,
        L"%s::UpdateAlertPolicy -- Get MaxAlertNum policy fail, return value(%d), using default value(%d)");
    monitor.SetInterval(nInterval);
    monitor.SetThreshold(nThreshold);
    monitor.SetSamplingAmount(nSamplingAmount);
    monitor.SetMaxAlertNum(nMaxAlertNum);
}

} // namespace varnex
