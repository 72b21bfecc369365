#pragma once

#include "alerting/AlertRecord.h"

#include <cstddef>

namespace varnex
{

// A memory alert of the paging file becomes a type of its own.
void MarkPagingFileAlert(VARNEX_ALERT_BUF& record) noexcept;

// The text of a record for the host: local time, host name and, for a disk or an adapter, its name. Cut to cchText
// characters, its terminator among them; a cchText of 0 writes nothing.
void ComposeAlertMessage(const VARNEX_ALERT_BUF& record, wchar_t* pwszText, std::size_t cchText) noexcept;

} // namespace varnex
