#include "Platform/HTTP/Server/Answer.h"

#include <random>

#include "Platform/HTTP/Server/ByteRangeSet.h"
#include "Platform/HTTP/Server/HTTPDate.h"
#include "Platform/HTTP/Server/ResponseHead.h"

namespace ferrox {

namespace {

/// A date is a strong validator only once the second it names is over (RFC 9110 section 8.8.2.2).
bool isRangeWanted(const RequestHead& request, const HTTPResponse& response) {
  const auto condition = request.field("If-Range");
  if (!condition) return true;
  const auto modified = response.lastModified();
  return modified && *condition == httpDate(*modified) && std::time(nullptr) > *modified + 1;
}

ByteRangeSet rangesOf(const RequestHead& request, const HTTPResponse& response, int status) {
  if (status != 200 || request.method != "GET" || !response.supportsByteRanges()) return {};
  if (request.count("Range") != 1 || !isRangeWanted(request, response)) return {};
  return ByteRangeSet::parse(*request.field("Range"), response.contentLength());
}

std::string makeBoundary() {
  thread_local std::mt19937_64 random{std::random_device{}()};
  static constexpr char digits[] = "0123456789abcdef";
  std::string boundary = "ferrox-";
  std::uint64_t bits = random();
  for (int i = 0; i < 16; ++i, bits >>= 4) boundary.push_back(digits[bits & 15]);
  return boundary;
}

/// RFC 9110 section 14.6.
std::vector<BodySegment> multipartSegments(const std::vector<ByteRange>& ranges, std::uint64_t size,
                                           std::string_view contentType, const std::string& boundary) {
  std::vector<BodySegment> segments;
  for (const ByteRange& range : ranges) {
    std::string text = (segments.empty() ? "--" : "\r\n--") + boundary + "\r\n";
    if (!contentType.empty()) text.append("Content-Type: ").append(contentType).append("\r\n");
    text.append("Content-Range: ").append(contentRangeText(range, size)).append("\r\n\r\n");
    segments.push_back({std::move(text), range.first, range.length});
  }
  segments.push_back({"\r\n--" + boundary + "--\r\n", 0, 0});
  return segments;
}

std::uint64_t lengthOf(const std::vector<BodySegment>& segments) {
  std::uint64_t length = 0;
  for (const BodySegment& segment : segments) length += segment.text.size() + segment.length;
  return length;
}

/// Takes the content type out of the handler's fields: it moves into the parts.
std::string takeContentType(HTTPHeaders& headers) {
  for (auto field = headers.begin(); field != headers.end(); ++field) {
    if (!equalsIgnoringAsciiCase(field->first, "Content-Type")) continue;
    std::string value = std::move(field->second);
    headers.erase(field);
    return value;
  }
  return {};
}

void writeBody(std::string& out, std::shared_ptr<HTTPResponse> response, std::vector<BodySegment> segments,
               WrittenAnswer& answer) {
  if (segments.size() == 1 && BodyTransfer::appendSmall(*response, segments.front(), out)) {
    if (BodyTransfer::isFile(*response)) answer.fileBytes = segments.front().length;
  } else {
    answer.body = std::make_unique<BodyTransfer>(std::move(response), std::move(segments));
  }
}

}  // namespace

WrittenAnswer writeAnswer(std::string& out, const RequestHead& request,
                          std::shared_ptr<HTTPResponse> response, bool keepAlive, std::string_view date) {
  int status = response->status();
  if (status < 200 || status > 599) status = 500;
  HTTPHeaders headers = response->httpHeaders();
  const std::uint64_t size = response->contentLength();
  const ByteRangeSet ranges = rangesOf(request, *response, status);
  std::vector<BodySegment> segments;
  std::string contentRange;
  switch (ranges.kind) {
    case ByteRangeSet::Kind::Ignored:
      segments.push_back({{}, 0, size});
      break;
    case ByteRangeSet::Kind::Unsatisfiable:
      status = 416;
      contentRange = "bytes */" + std::to_string(size);
      break;
    case ByteRangeSet::Kind::Satisfiable:
      status = 206;
      if (ranges.ranges.size() == 1) {
        segments.push_back({{}, ranges.ranges[0].first, ranges.ranges[0].length});
        contentRange = contentRangeText(ranges.ranges[0], size);
      } else {
        const std::string boundary = makeBoundary();
        segments = multipartSegments(ranges.ranges, size, takeContentType(headers), boundary);
        headers.emplace_back("Content-Type", "multipart/byteranges; boundary=" + boundary);
      }
  }
  ResponseHead head(out, status, date);
  if (!forbidsBody(status)) head.add("Content-Length", lengthOf(segments));
  head.addFromHandler(headers);
  if (!contentRange.empty()) head.add("Content-Range", contentRange);
  if (response->supportsByteRanges()) head.add("Accept-Ranges", "bytes");
  if (const auto modified = response->lastModified()) head.add("Last-Modified", httpDate(*modified));
  head.addPersistence(keepAlive, request.minorVersion);
  head.end();
  WrittenAnswer answer{.status = status};
  if (request.method == "HEAD" || forbidsBody(status) || segments.empty()) return answer;
  writeBody(out, std::move(response), std::move(segments), answer);
  return answer;
}

void writeRefusal(std::string& out, int status, std::string_view date, bool keepAlive, int minorVersion,
                  const HTTPHeaders& headers) {
  ResponseHead head(out, status, date);
  head.add("Content-Length", std::uint64_t{0});
  head.addFromHandler(headers);
  head.addPersistence(keepAlive, minorVersion);
  head.end();
}

}  // namespace ferrox
