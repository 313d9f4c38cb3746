// Ours in the listing benchmark: from the call of listCapabilities to its completion, over connections that
// are open, again and again.
//   ferrox_bench_listing_lister PORT PEERS STREAMS PROJECTS COUNT          prints the microseconds of each
//   listing
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "Benchmarks/Support/KnownPeers.h"
#include "Classes/Capabilities/FRXCapabilitiesListing.h"
#include "Platform/RunLoop/RunLoop.h"

namespace {

using namespace ferrox;
using Result = FRXCapabilitiesListing::Result;

/// Not counted.
constexpr std::size_t warmUp = 20;

struct Course {
  std::size_t peers, streams, projects, count;
};

/// Whether every peer was listed with all that it offers.
bool isComplete(const Result& result, const Course& course) {
  const auto holds = [&](std::string_view kind, std::size_t each) {
    const auto found = result.find(kind);
    if (found == result.end() || found->second.size() != course.peers) return false;
    for (const auto& [peer, accessors] : found->second) {
      if (accessors.size() != each) return false;
    }
    return true;
  };
  return holds(FRXCapabilityNameStreaming, course.streams) &&
         holds(FRXCapabilityNameProjectSharing, course.projects);
}

class Lister {
 public:
  Lister(const bench::KnownPeers& peers, const Course& course)
      : course_(course), listing_(partsOver(peers)) {}

  void next() {
    if (microseconds_.size() == course_.count + warmUp) return RunLoop::main().stop();
    const auto begin = std::chrono::steady_clock::now();
    listing_.listCapabilities([this, begin](const Result& result) {
      const auto taken = std::chrono::steady_clock::now() - begin;
      if (!isComplete(result, course_)) return RunLoop::main().stop();
      microseconds_.push_back(std::chrono::duration_cast<std::chrono::microseconds>(taken).count());
      // From the loop again, so that nothing of the former listing is still on the stack.
      RunLoop::main().post([this] { next(); });
    });
  }

  /// False when a listing was incomplete.
  bool report() const {
    if (microseconds_.size() < course_.count + warmUp) return false;
    std::string list;
    for (std::size_t i = warmUp; i < microseconds_.size(); ++i) {
      list += (list.empty() ? "" : ",") + std::to_string(microseconds_[i]);
    }
    std::cout << "[" << list << "]" << std::endl;
    return true;
  }

 private:
  static FRXCapabilitiesListingParts partsOver(const bench::KnownPeers& peers) {
    auto parts = FRXCapabilitiesListingParts::usual();
    parts.currentServices = [services = peers.services()] { return services; };
    parts.broadcastMessage = [manager = peers.manager()](const auto& message, const auto& toService,
                                                         const auto& onResponse, const auto& onError) {
      manager->broadcastMessage(message, toService, onResponse, onError);
    };
    parts.forgetReply = [manager = peers.manager()](const std::string& id) { manager->forgetReply(id); };
    return parts;
  }

  const Course course_;
  const FRXCapabilitiesListing listing_;
  std::vector<std::int64_t> microseconds_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  const auto number = [argv](int i) { return static_cast<std::size_t>(std::stoul(argv[i])); };
  const Course course{number(2), number(3), number(4), number(5)};
  RunLoop& loop = RunLoop::main();
  loop.runPending();
  bench::KnownPeers peers(course.peers, static_cast<std::uint16_t>(number(1)));
  Lister lister(peers, course);
  peers.connect([&lister] { lister.next(); });
  loop.run();
  return lister.report() ? 0 : 1;
}
