// Answers one query again and again over 10 streams and 100 projects, from its text to the response text.
//   ferrox_bench_graphql SCHEMA-FILE QUERY SECONDS    prints what was done, as JSON
//   ferrox_bench_graphql SCHEMA-FILE QUERY            prints the response
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "Benchmarks/Support/AllocationCount.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"

namespace {

using namespace ferrox;
using Clock = std::chrono::steady_clock;

constexpr int streams = 10, projects = 100;
constexpr std::int64_t port = 16654;

struct Stream final : GraphQLObject {
  std::string name, path, contentType;

  std::string_view typeName() const override { return "StreamingSource"; }
  GraphQLValue property(std::string_view property, const FRXDictionary&) const override {
    if (property == "name") return name;
    if (property == "path") return path;
    if (property == "contentType") return contentType;
    if (property == "port") return port;
    return {};
  }
};

struct Project final : GraphQLObject {
  std::string name, id;

  std::string_view typeName() const override { return "ProjectSharingSource"; }
  GraphQLValue property(std::string_view property, const FRXDictionary&) const override {
    if (property == "name") return name;
    if (property == "id") return id;
    if (property == "port") return port;
    return {};
  }
};

struct Capabilities final : GraphQLObject {
  GraphQLList streaming, projectsharing;

  Capabilities() {
    for (int i = 0; i < streams; ++i) {
      auto stream = std::make_shared<Stream>();
      stream->name = "Camera " + std::to_string(i);
      stream->path = "/streams/camera-" + std::to_string(i) + "/index.m3u8";
      stream->contentType = i % 2 == 0 ? "VIDEO_ANGLE" : "MOMENTS_DATA";
      streaming.emplace_back(std::move(stream));
    }
    for (int i = 0; i < projects; ++i) {
      auto project = std::make_shared<Project>();
      project->name = "Project " + std::to_string(i);
      project->id = "8C0B6C9E-57B4-4E1B-9B3C-" + std::to_string(100000 + i);
      projectsharing.emplace_back(std::move(project));
    }
  }
  std::string_view typeName() const override { return "Capabilities"; }
  GraphQLValue property(std::string_view property, const FRXDictionary&) const override {
    if (property == "streaming") return streaming;
    if (property == "projectsharing") return projectsharing;
    return {};
  }
};

struct Root final : GraphQLObject {
  std::shared_ptr<const Capabilities> capabilities = std::make_shared<const Capabilities>();

  std::string_view typeName() const override { return "Query"; }
  GraphQLValue property(std::string_view property, const FRXDictionary&) const override {
    return property == "capabilities" ? GraphQLValue(capabilities) : GraphQLValue();
  }
};

class Bench {
 public:
  Bench(const std::string& sdl, std::string query) : query_(std::move(query)) {
    engine_ = GraphQLEngine::engineWithSchema(sdl, [](const FRXError& error) {
      std::fprintf(stderr, "%s\n", error.localizedDescription.c_str());
      std::exit(1);
    });
  }

  void printResponse() const {
    engine_->executeQuery(query_, root_, [](const std::string& response) { std::puts(response.c_str()); });
  }

  void measure(Clock::duration duration) const {
    (void)answersIn(duration / 4);  // warms up
    const std::uint64_t allocations = bench::allocationCount();
    const auto began = Clock::now();
    const std::uint64_t answers = answersIn(duration);
    const double seconds = std::chrono::duration<double>(Clock::now() - began).count();
    std::printf(R"({"answers": %llu, "seconds": %f, "allocations": %.1f})"
                "\n",
                static_cast<unsigned long long>(answers), seconds,
                static_cast<double>(bench::allocationCount() - allocations) / static_cast<double>(answers));
  }

 private:
  std::uint64_t answersIn(Clock::duration duration) const {
    std::uint64_t answers = 0;
    std::size_t bytes = 0;
    for (const auto end = Clock::now() + duration; Clock::now() < end; ++answers) {
      engine_->executeQuery(query_, root_,
                            [&bytes](const std::string& response) { bytes += response.size(); });
    }
    if (bytes == 0) std::exit(1);
    return answers;
  }

  std::shared_ptr<const GraphQLEngine> engine_;
  Root root_;
  std::string query_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  std::ifstream file(argv[1]);
  const std::string sdl((std::istreambuf_iterator<char>(file)), {});
  const Bench bench(sdl, argv[2]);
  if (argc == 3) {
    bench.printResponse();
  } else {
    bench.measure(
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(std::atof(argv[3]))));
  }
  return 0;
}
