#pragma once

namespace varnex
{

// What one judgement of an average comes to.
enum class AlertDecision
{
    Fire,  // raise an alert and hold further ones back
    Rearm, // below the threshold: the next crossing may fire
    Keep,  // at or above it, but already reported or over the day's limit: nothing changes
};

// An alert fires on the crossing into the reached state only, and while fewer than the day's maximum were raised. An
// average equal to the threshold has reached it. With the day's limit used up nothing is marked as reported, so that
// the first judgement of a new day fires.
constexpr AlertDecision Decide(int nAverage, int nThreshold, bool bReachedLastTime, int nTodaySent, int nMaxAlertNum)
{
    if (nAverage < nThreshold)
    {
        return AlertDecision::Rearm;
    }
    return !bReachedLastTime && nTodaySent < nMaxAlertNum ? AlertDecision::Fire : AlertDecision::Keep;
}

} // namespace varnex
