#include "AlertFetcher.h"

#include "SlowNotice.h"

namespace varnex::host
{

namespace
{

constexpr unsigned TEXT_CHARS = 1024; // a time, a host's name and a resource's name, none of them cut

// A fetch may return one record more than asked for.
constexpr std::size_t RoomFor(int nBatch) noexcept
{
    return static_cast<std::size_t>(nBatch) + 1;
}

} // namespace

AlertFetcher::AlertFetcher(const ModuleLibrary& library, int nBatch)
    : m_pfnFetch(library.Fetch()), m_nBatch(nBatch), m_types(RoomFor(nBatch)), m_thresholds(RoomFor(nBatch)),
      m_values(RoomFor(nBatch)), m_characters(RoomFor(nBatch) * TEXT_CHARS), m_texts(RoomFor(nBatch))
{
    for (std::size_t i = 0; i < m_texts.size(); ++i)
    {
        m_texts[i] = &m_characters[i * TEXT_CHARS];
    }
}

std::vector<FetchedAlert> AlertFetcher::Fetch()
{
    const SlowNotice notice(L"Waiting for the alert file, which another process may hold");
    m_nLastCount =
        m_pfnFetch(m_types.data(), m_texts.data(), TEXT_CHARS, m_thresholds.data(), m_values.data(), m_nBatch);
    std::vector<FetchedAlert> alerts;
    for (std::size_t i = 0; i < static_cast<std::size_t>(m_nLastCount); ++i)
    {
        alerts.push_back({static_cast<unsigned>(m_types[i]), m_texts[i], m_thresholds[i], m_values[i]});
    }
    return alerts;
}

bool AlertFetcher::MayHaveMore() const noexcept
{
    return m_nLastCount > m_nBatch;
}

} // namespace varnex::host
