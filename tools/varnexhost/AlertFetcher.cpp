#include "AlertFetcher.h"

namespace varnex::host
{

namespace
{

constexpr int BATCH = 32;
constexpr std::size_t ROOM = BATCH + 1; // a fetch may return one record more than asked for
constexpr unsigned TEXT_CHARS = 1024;   // a time, a host's name and a resource's name, none of them cut

} // namespace

AlertFetcher::AlertFetcher(const ModuleLibrary& library)
    : m_pfnFetch(library.Fetch()), m_types(ROOM), m_thresholds(ROOM), m_values(ROOM), m_characters(ROOM * TEXT_CHARS),
      m_texts(ROOM)
{
    for (std::size_t i = 0; i < ROOM; ++i)
    {
        m_texts[i] = &m_characters[i * TEXT_CHARS];
    }
}

std::vector<FetchedAlert> AlertFetcher::Fetch()
{
    m_nLastCount = m_pfnFetch(m_types.data(), m_texts.data(), TEXT_CHARS, m_thresholds.data(), m_values.data(), BATCH);
    std::vector<FetchedAlert> alerts;
    for (std::size_t i = 0; i < static_cast<std::size_t>(m_nLastCount); ++i)
    {
        alerts.push_back({static_cast<unsigned>(m_types[i]), m_texts[i], m_thresholds[i], m_values[i]});
    }
    return alerts;
}

bool AlertFetcher::MayHaveMore() const noexcept
{
    return m_nLastCount > BATCH;
}

} // namespace varnex::host
