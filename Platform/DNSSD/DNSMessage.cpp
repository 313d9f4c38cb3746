#include "Platform/DNSSD/DNSMessage.h"

#include <algorithm>
#include <limits>

namespace ferrox::dnssd {
namespace {

constexpr std::size_t maxLabelSize = 63;
constexpr std::size_t maxNameSize = 255;
constexpr std::size_t maxPacketSize = 9000;  // RFC 6762 section 17
constexpr std::size_t headerSize = 12;

char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameLabel(const std::string& a, const std::string& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return asciiLower(x) == asciiLower(y); });
}

std::size_t wireSize(const DNSName& name) {
  std::size_t size = 1;
  for (const std::string& label : name) size += 1 + label.size();
  return size;
}

bool isValidName(const DNSName& name) {
  return wireSize(name) <= maxNameSize && std::all_of(name.begin(), name.end(), [](const std::string& label) {
           return !label.empty() && label.size() <= maxLabelSize;
         });
}

// Every read checks the bounds; after the first failure all further reads fail.
class Reader {
 public:
  explicit Reader(std::string_view data, bool compression = true) : data_(data), compression_(compression) {}

  bool failed() const { return failed_; }
  bool atEnd() const { return offset_ == data_.size(); }
  bool isWhere(const Reader& other) const { return offset_ == other.offset_; }

  std::uint8_t byte() {
    if (failed_ || offset_ >= data_.size()) return fail();
    return static_cast<std::uint8_t>(data_[offset_++]);
  }
  std::uint16_t number16() {
    const unsigned high = byte();
    return static_cast<std::uint16_t>(high << 8 | byte());
  }
  std::uint32_t number32() {
    const std::uint32_t high = number16();
    return high << 16 | number16();
  }
  std::string bytes(std::size_t count) {
    if (failed_ || count > data_.size() - offset_) {
      fail();
      return {};
    }
    std::string result(data_.substr(offset_, count));
    offset_ += count;
    return result;
  }

  DNSName name() {
    DNSName labels;
    std::size_t size = 1;
    std::size_t afterFirstPointer = 0;
    std::size_t lowestTarget = offset_;
    while (!failed_) {
      const std::size_t start = offset_;
      const unsigned length = byte();
      if (failed_ || length == 0) break;
      if ((length & 0xC0) == 0xC0) {
        const std::size_t target = (length & 0x3FU) << 8 | byte();
        if (afterFirstPointer == 0) afterFirstPointer = offset_;
        // Only ever backwards, so there is no loop.
        if (!compression_ || failed_ || target >= std::min(lowestTarget, start)) fail();
        lowestTarget = target;
        offset_ = target;
        continue;
      }
      size += 1 + length;
      if (length > maxLabelSize || size > maxNameSize) fail();
      labels.push_back(bytes(length));
    }
    if (afterFirstPointer != 0) offset_ = afterFirstPointer;
    return failed_ ? DNSName{} : labels;
  }

 private:
  std::uint8_t fail() {
    failed_ = true;
    return 0;
  }

  std::string_view data_;
  std::size_t offset_ = 0;
  bool compression_;
  bool failed_ = false;
};

void put16(std::string& out, unsigned value) {
  out.push_back(static_cast<char>(value >> 8 & 0xFF));
  out.push_back(static_cast<char>(value & 0xFF));
}

void put32(std::string& out, std::uint32_t value) {
  put16(out, value >> 16);
  put16(out, value & 0xFFFF);
}

bool putName(std::string& out, const DNSName& name) {
  if (!isValidName(name)) return false;
  for (const std::string& label : name) {
    out.push_back(static_cast<char>(label.size()));
    out.append(label);
  }
  out.push_back('\0');
  return true;
}

bool putRecord(std::string& out, const DNSRecord& record) {
  if (!putName(out, record.name)) return false;
  if (record.rdata.size() > std::numeric_limits<std::uint16_t>::max()) return false;
  put16(out, record.type);
  put16(out, record.recordClass);
  put32(out, record.timeToLive);
  put16(out, static_cast<unsigned>(record.rdata.size()));
  out.append(record.rdata);
  return true;
}

// The data at which `reader` stands with its name written out (RFC 6762 section 18.14 has it compressed); as
// it stands there when that is no name.
std::string readDataWithName(Reader& reader, std::size_t size, std::size_t bytesBeforeName) {
  Reader inside = reader;
  const std::string asSent = reader.bytes(size);
  std::string data = inside.bytes(bytesBeforeName);
  const DNSName name = inside.name();
  const bool wellFormed = !inside.failed() && !reader.failed() && inside.isWhere(reader);
  return wellFormed && putName(data, name) ? data : asSent;
}

std::string readData(Reader& reader, std::uint16_t type, std::size_t size) {
  constexpr std::size_t bytesBeforeTarget = 6;  // priority, weight and port (RFC 2782)
  if (type == recordTypePTR) return readDataWithName(reader, size, 0);
  if (type == recordTypeSRV) return readDataWithName(reader, size, bytesBeforeTarget);
  return reader.bytes(size);
}

DNSRecord readRecord(Reader& reader) {
  DNSRecord record;
  record.name = reader.name();
  record.type = reader.number16();
  record.recordClass = reader.number16();
  record.timeToLive = reader.number32();
  const std::size_t size = reader.number16();
  record.rdata = readData(reader, record.type, size);
  return record;
}

}  // namespace

bool sameDNSName(const DNSName& a, const DNSName& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameLabel);
}

std::optional<DNSName> dnsNameFromText(std::string_view text) {
  DNSName name;
  if (text.ends_with('.')) text.remove_suffix(1);
  while (true) {
    const std::size_t dot = text.find('.');
    name.emplace_back(text.substr(0, dot));
    if (dot == std::string_view::npos) break;
    text.remove_prefix(dot + 1);
  }
  if (!isValidName(name)) return std::nullopt;
  return name;
}

std::optional<DNSMessage> readDNSMessage(std::string_view packet) {
  if (packet.size() < headerSize || packet.size() > maxPacketSize) return std::nullopt;
  Reader reader(packet);
  DNSMessage message;
  message.id = reader.number16();
  message.flags = reader.number16();
  const unsigned questions = reader.number16();
  unsigned records = 0;
  for (int section = 0; section < 3; ++section) records += reader.number16();
  for (unsigned i = 0; i < questions && !reader.failed(); ++i) {
    DNSQuestion question;
    question.name = reader.name();
    question.type = reader.number16();
    question.recordClass = reader.number16();
    message.questions.push_back(std::move(question));
  }
  for (unsigned i = 0; i < records && !reader.failed(); ++i) message.records.push_back(readRecord(reader));
  if (reader.failed()) return std::nullopt;
  return message;
}

std::optional<std::string> writeDNSMessage(const DNSMessage& message) {
  std::string out;
  put16(out, message.id);
  put16(out, message.flags);
  put16(out, static_cast<unsigned>(message.questions.size()));
  put16(out, static_cast<unsigned>(message.records.size()));
  put32(out, 0);
  for (const DNSQuestion& question : message.questions) {
    if (!putName(out, question.name)) return std::nullopt;
    put16(out, question.type);
    put16(out, question.recordClass);
  }
  for (const DNSRecord& record : message.records) {
    if (!putRecord(out, record)) return std::nullopt;
  }
  if (out.size() > maxPacketSize) return std::nullopt;
  return out;
}

std::optional<DNSName> readPTRData(std::string_view rdata) {
  Reader reader(rdata, false);
  DNSName name = reader.name();
  if (reader.failed() || !reader.atEnd()) return std::nullopt;
  return name;
}

std::optional<SRVData> readSRVData(std::string_view rdata) {
  Reader reader(rdata, false);
  reader.number16();  // priority
  reader.number16();  // weight
  SRVData data;
  data.port = reader.number16();
  data.target = reader.name();
  if (reader.failed() || !reader.atEnd()) return std::nullopt;
  return data;
}

}  // namespace ferrox::dnssd
