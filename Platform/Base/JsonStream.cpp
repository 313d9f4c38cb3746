#include "Platform/Base/JsonStream.h"

#include <boost/json/basic_parser_impl.hpp>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <string>
#include <utility>

namespace ferrox {
namespace {

namespace json = boost::json;

/// Passes the parser's events on, with the pieces of one text put together.
class Forwarder {
 public:
  // NOLINTBEGIN(readability-identifier-naming): the parser asks for these names.
  static constexpr std::size_t max_object_size = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t max_array_size = max_object_size;
  static constexpr std::size_t max_key_size = max_object_size;
  static constexpr std::size_t max_string_size = max_object_size;
  // NOLINTEND(readability-identifier-naming)

  explicit Forwarder(JsonStreamEvents& events) : events_(events) {}
  bool wasStopped() const { return stopped_; }

  bool on_document_begin(json::error_code&) { return true; }
  bool on_document_end(json::error_code&) { return true; }
  bool on_object_begin(json::error_code& failure) { return goOn(events_.onObjectBegin(), failure); }
  bool on_object_end(std::size_t, json::error_code& failure) { return goOn(events_.onObjectEnd(), failure); }
  bool on_array_begin(json::error_code& failure) { return goOn(events_.onArrayBegin(), failure); }
  bool on_array_end(std::size_t, json::error_code& failure) { return goOn(events_.onArrayEnd(), failure); }
  bool on_key_part(json::string_view part, std::size_t, json::error_code&) { return keep(part); }
  bool on_key(json::string_view rest, std::size_t, json::error_code& failure) {
    return whole(rest, failure, [this](std::string_view text) { return events_.onKey(text); });
  }
  bool on_string_part(json::string_view part, std::size_t, json::error_code&) { return keep(part); }
  bool on_string(json::string_view rest, std::size_t, json::error_code& failure) {
    return whole(rest, failure, [this](std::string_view text) { return events_.onText(text); });
  }
  bool on_number_part(json::string_view, json::error_code&) { return true; }
  bool on_int64(std::int64_t, json::string_view, json::error_code& failure) { return other(failure); }
  bool on_uint64(std::uint64_t, json::string_view, json::error_code& failure) { return other(failure); }
  bool on_double(double, json::string_view, json::error_code& failure) { return other(failure); }
  bool on_bool(bool, json::error_code& failure) { return other(failure); }
  bool on_null(json::error_code& failure) { return other(failure); }
  bool on_comment_part(json::string_view, json::error_code&) { return true; }
  bool on_comment(json::string_view, json::error_code&) { return true; }

 private:
  bool goOn(bool wanted, json::error_code& failure) {
    if (wanted) return true;
    stopped_ = true;
    failure = json::error::exception;
    return false;
  }
  bool other(json::error_code& failure) { return goOn(events_.onOther(), failure); }
  bool keep(json::string_view part) {
    pending_.append(part.data(), part.size());
    return true;
  }
  template <typename Event>
  bool whole(json::string_view rest, json::error_code& failure, const Event& event) {
    if (pending_.empty()) return goOn(event({rest.data(), rest.size()}), failure);
    pending_.append(rest.data(), rest.size());
    const std::string text = std::exchange(pending_, {});
    return goOn(event(text), failure);
  }

  JsonStreamEvents& events_;
  std::string pending_;
  bool stopped_ = false;
};

json::parse_options optionsOf(const JsonLimits& limits) {
  json::parse_options options;
  options.max_depth = limits.depth;
  return options;
}

}  // namespace

struct JsonStreamReader::Impl {
  Impl(JsonStreamEvents& events, const JsonLimits& wanted)
      : limits(wanted), parser(optionsOf(wanted), events) {}

  bool read(bool more, std::string_view piece);

  const JsonLimits limits;
  json::basic_parser<Forwarder> parser;
  std::size_t bytes = 0;
  bool isFinished = false;
  std::optional<FRXError> error;
};

bool JsonStreamReader::Impl::read(bool more, std::string_view piece) {
  json::error_code failure;
  std::size_t count = parser.write_some(more, piece.data(), piece.size(), failure);
  if (!failure && count < piece.size()) failure = json::error::extra_data;
  if (!failure) return true;
  if (parser.handler().wasStopped()) {
    error = {JsonErrorDomain, JsonErrorStopped, "The text is not what was expected."};
  } else {
    error = {JsonErrorDomain, 1, "The text is not usable JSON: " + failure.message() + "."};
  }
  return false;
}

JsonStreamReader::JsonStreamReader(JsonStreamEvents& events, const JsonLimits& limits)
    : impl_(std::make_unique<Impl>(events, limits)) {}

JsonStreamReader::~JsonStreamReader() = default;

bool JsonStreamReader::write(std::string_view piece) {
  if (impl_->error) return false;
  if (piece.size() > impl_->limits.bytes - impl_->bytes) {
    impl_->error = {JsonErrorDomain, 2,
                    "The text is longer than " + std::to_string(impl_->limits.bytes) + " bytes."};
    return false;
  }
  impl_->bytes += piece.size();
  try {
    return impl_->read(true, piece);
  } catch (const std::exception& exception) {
    impl_->error = {JsonErrorDomain, 4, std::string("The text could not be read: ") + exception.what() + "."};
    return false;
  }
}

bool JsonStreamReader::finish() {
  if (impl_->error || impl_->isFinished) return !impl_->error;
  impl_->isFinished = true;
  try {
    return impl_->read(false, {});
  } catch (const std::exception& exception) {
    impl_->error = {JsonErrorDomain, 4, std::string("The text could not be read: ") + exception.what() + "."};
    return false;
  }
}

const std::optional<FRXError>& JsonStreamReader::error() const { return impl_->error; }

}  // namespace ferrox
