// A peer's whole answer to the capabilities query, from the text of its frame to the URLs made of it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Classes/Capabilities/FRXCapabilitiesListing.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Fuzz/FuzzSupport.h"
#include "Platform/Base/Json.h"
#include "Platform/HTTP/Client/HTTPClientTarget.h"
#include "Platform/Log/Log.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/ManualClock.h"

namespace {

using namespace ferrox;

/// Sees that no line can be forged in a log, whatever a peer sends.
struct StrictSink : LogSink {
  void write(const LogEntry& entry) override {
    const std::string escaped = Log::escaped(entry.message);
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    FUZZ_REQUIRE(std::none_of(escaped.begin(), escaped.end(), isControl));
    ++entries;
  }
  void writeAudit(const AuditEntry&) override {}
  std::size_t entries = 0;
};

/// The listing's tasks run when the test drives the loop, all on one thread.
class LoopQueue : public BackgroundQueue {
 public:
  explicit LoopQueue(RunLoop& loop) : loop_(loop) {}
  void post(Task task) override { loop_.post(std::move(task)); }

 private:
  RunLoop& loop_;
};

struct World {
  World() {
    Log::setLevel(LogLevel::Warn);
    Log::setSink(sink);
  }
  void runAll() {
    while (loop.runPending() > 0) {
    }
  }

  std::shared_ptr<StrictSink> sink = std::make_shared<StrictSink>();
  test::ManualClock clock;
  RunLoop loop{clock};
  LoopQueue background{loop};
  std::string answer;
  FRXCapabilitiesListing listing{{
      .mainLoop = &loop,
      .background = &background,
      .currentServices =
          [] {
            return std::vector{std::make_shared<FRXNetService>("peer.local.", 16654, "DEVICE-MTI=/PEER")};
          },
      .broadcastMessage = [this](const auto&, const auto&, const auto& onResponse,
                                 const auto&) { onResponse(answer); },
      .forgetReply = {},
  }};
};

void checkURL(const std::string& url) {
  constexpr std::string_view here = "http://PEER.LOCAL.:";
  FUZZ_REQUIRE(url.starts_with(here));
  FUZZ_REQUIRE(std::all_of(url.begin(), url.end(), [](char c) { return c > ' ' && c < '\x7F'; }));
  if (url.find("(null)", here.size()) == here.size() || url.find("0", here.size()) == here.size()) return;
  const auto target = targetOfURL(url, nullptr);
  FUZZ_REQUIRE(target && target->host == "PEER.LOCAL.");
}

void checkResult(const FRXCapabilitiesListing::Result& result) {
  FUZZ_REQUIRE(result.empty() || result.size() == 2);
  for (const auto& [kind, services] : result) {
    FUZZ_REQUIRE(kind == "streaming" || kind == "projectsharing");
    FUZZ_REQUIRE(services.size() == 1 && services.begin()->first == "PEER.LOCAL.:16654");
    for (const auto& accessor : services.begin()->second) checkURL(accessor.accessURL());
  }
}

/// The same text inside a message that is well-formed, so that the reading of offers is reached more often.
std::string wrapped(std::string_view text) {
  const auto json = writeJson(FRXDictionary{{"type", 2}, {"id", "X"}, {"message", text}});
  return json.value_or(std::string(text));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World& world = *new World;
  const std::string_view text = fuzz::asText(data, size);
  for (const std::string& answer : {std::string(text), wrapped(text)}) {
    world.answer = answer;
    world.sink->entries = 0;
    std::optional<FRXCapabilitiesListing::Result> result;
    world.listing.listCapabilities([&result](const auto& listed) {
      FUZZ_REQUIRE(!result);
      result = listed;
    });
    world.runAll();
    FUZZ_REQUIRE(result.has_value());
    FUZZ_REQUIRE(world.sink->entries <= 2);
    checkResult(*result);
  }
  return 0;
}
