#include "base/prefix.hpp"
#include "driver/run/update_state.hpp"
#include "platform/platform.hpp"
#include "transfer/tool_request.hpp"
#include "vendor/definitions_updater.hpp"

using namespace tarnwick;

/// Updates the one item of the vendor's that it is given: a run of today's program has only one,
/// and that is not zipped.
int main(int count, char** arguments) {
  if (count != 2) return 2;
  const std::string item = arguments[1];
  RunContext context;
  HttpClient http(settings::largestDownload);
  const VendorSession session{.http = http,
                              .temporaryDirectory = platform::makeTemporaryDirectory(),
                              .userAgent = toolUserAgent(context.toolVersion),
                              .publicKey = settings::vendorPublicKey};
  UpdateState state = UpdateState::open();
  updateVendorFile(context, session, item, "stored before", state);
  state.commit();
  platform::releaseTemporaryDirectory(session.temporaryDirectory);
  return context.definitionsChanged ? 1 : 0;
}
