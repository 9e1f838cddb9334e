#include "protocol/bvrequest.h"

#include <string.h>

#include <algorithm>
#include <utility>

namespace {

// So many lines share an entry of the index: few enough to walk, and the index stays smaller than the text.
constexpr int kLineStride = 16;

// Behind the next line feed, or null when there is none before `end`.
const char* NextLine(const char* line, const char* end) {
  if (line == end) return nullptr;
  const void* feed = memchr(line, '\n', static_cast<size_t>(end - line));
  return feed == nullptr ? nullptr : static_cast<const char*>(feed) + 1;
}

String Between(const char* begin, const char* end) {
  return String(begin, static_cast<int>(end - begin));
}

}  // namespace

BVRequest::BVRequest(const String& newText) : text(newText) {
  IndexLines();
}

BVRequest::BVRequest(String&& newText) : text(std::move(newText)) {
  IndexLines();
}

BVRequest& BVRequest::operator=(const String& newText) {
  text = newText;
  IndexLines();
  return *this;
}

BVRequest& BVRequest::operator=(const char* newText) {
  text = newText;
  IndexLines();
  return *this;
}

void BVRequest::AddData(const char* bytes, int n) {
  text.AddData(bytes, n);
  lineStarts.clear();
}

TPacketHead BVRequest::Head() const {
  TPacketHead head;
  head.Feed(text.Data(), text.Length());
  return head;
}

bool BVRequest::WholePacket() const {
  return Head().Whole();
}

int BVRequest::ParseInitRequest(const String& password, in_addr client) {
  return ParseInitRequest(TPasswordKeys(password), client);
}

int BVRequest::ParseInitRequest(const TPasswordKeys& keys, in_addr client) {
  sessionKey = String();
  cipher = nullptr;
  const TPacketHead head = Head();
  if (!head.CheckFrame(client, keys)) return 0;

  // Both fields lie within the received bytes, so within an int.
  sessionKey.SetLength(head.KeySize());
  keys.cipher.Decrypt(text.Data() + head.KeyOffset(), sessionKey.Data(), head.KeySize());
  cipher = std::make_shared<TCipherKey>(sessionKey);
  const int size = static_cast<int>(head.RequestSize());
  cipher->Decrypt(text.Data() + head.RequestOffset(), text.Data(), size);
  text.SetLength(size);
  IndexLines();
  return 1;
}

BVRequest BVRequest::WithText(const String& newText) const {
  BVRequest other(newText);
  other.sessionKey = sessionKey;
  other.cipher = cipher;
  return other;
}

void BVRequest::IndexLines() {
  lineStarts.clear();
  const char *begin = text.Data(), *end = begin + text.Length();
  int i = 0;
  for (const char* line = begin; line != nullptr; line = NextLine(line, end), i++) {
    if (i % kLineStride == 0) lineStarts.push_back(static_cast<int>(line - begin));
  }
}

int BVRequest::GetParamsCount() const {
  return static_cast<int>(std::count(text.Data(), text.Data() + text.Length(), '\n'));
}

String BVRequest::GetParam(int i, int trim) const {
  const char *line = text.Data(), *end = line + text.Length();
  int ahead = std::max(i, 1) - 1;
  if (!lineStarts.empty()) {
    const size_t entry = static_cast<size_t>(ahead / kLineStride);
    if (entry >= lineStarts.size()) return String();
    line += lineStarts[entry];
    ahead %= kLineStride;
  }
  for (; ahead > 0 && line != nullptr; ahead--) line = NextLine(line, end);
  if (line == nullptr) return String();

  const char* next = NextLine(line, end);
  String param = Between(line, next == nullptr ? end : next - 1);
  if (trim) param.Trim();
  return param;
}

String BVRequest::GetNamedParam(const char* name) const {
  const char *line = text.Data(), *end = line + text.Length();
  // What follows the last line feed is no line here.
  for (const char* next; line != nullptr && (next = NextLine(line, end)) != nullptr; line = next) {
    const char* equals = static_cast<const char*>(memchr(line, '=', static_cast<size_t>(next - line)));
    if (equals != nullptr && Between(line, equals).Trim() == name) return Between(equals + 1, next - 1).Trim();
  }
  return String();
}
