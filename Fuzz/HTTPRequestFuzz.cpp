// A connection's bytes, read whole and in pieces: both ways must see the same requests and the same refusal.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "Platform/HTTP/Server/RequestReader.h"

namespace {

using ferrox::RequestReader;

/// What the reader made of the bytes, as text.
std::string readBy(std::string_view bytes, std::size_t pieceSize) {
  ferrox::HTTPServerLimits limits;
  limits.requestLine = 200;
  limits.headerBlock = 400;
  limits.headerCount = 10;
  limits.body = 300;
  RequestReader reader(limits);
  std::string seen;
  bool insideBody = false;
  const RequestReader::BodySink sink = [&](std::string_view body) { seen.append(body); };
  for (;;) {
    switch (reader.advance(sink)) {
      case RequestReader::State::NeedMore: {
        if (bytes.empty()) return seen + "|end";
        const auto space = reader.freeSpace();
        const std::size_t count = std::min({space.size(), bytes.size(), pieceSize});
        if (count == 0) std::abort();
        std::memcpy(space.data(), bytes.data(), count);
        reader.commit(count);
        bytes.remove_prefix(count);
        break;
      }
      case RequestReader::State::HeadComplete: {
        const ferrox::RequestHead& head = reader.head();
        seen.append("|").append(head.method).append(" ").append(head.uri).append(" ").append(head.authority);
        for (const ferrox::HeaderField& field : head.fields)
          seen.append(field.name).append("=").append(field.value);
        insideBody = head.hasBody;
        seen.append(head.hasBody ? "+" : "-").append(head.keepAlive ? "k" : "c").append(":");
        break;
      }
      case RequestReader::State::Complete:
        insideBody = false;
        reader.next();
        break;
      case RequestReader::State::Refused:
        // Of two faults in one body, which is found first depends on what has arrived.
        return seen + "|refused " + (insideBody ? std::string() : std::to_string(reader.refusal()));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string whole = readBy(bytes, bytes.size());
  if (whole != readBy(bytes, 1) || whole != readBy(bytes, 7)) std::abort();
  return 0;
}
