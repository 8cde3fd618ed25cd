#pragma once

#include "driver/run_context.hpp"
#include "transfer/http/http_client.hpp"

namespace tarnwick {

/// The upstream phase: runs `freshclam`, repairs what its exit status reports and runs it again,
/// fetches whole databases if its network problem remains, and points its configuration back at
/// ClamAV's own mirror. Returns the run's exit status.
[[nodiscard]] int updateUpstreamDatabases(RunContext& context, HttpClient& http);

}  // namespace tarnwick
