#include "agent/ipfilter.h"

#include <arpa/inet.h>

#include "net/resolver.h"

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The address text of `work` from position `begin` up to the next separator; `end` is where that stands.
String AddressText(const String& work, int begin, int& end) {
  end = begin;
  while (end <= work.Length() && work[end] != ',' && work[end] != '-') ++end;
  return work.Copy(begin, end - begin);
}

// In host order; 0 and the error text when it is none.  255.255.255.255 counts as none, as inet_addr has it.
in_addr_t ParseAddress(String text, String& error) {
  const in_addr_t address = inet_addr(text.CStr());
  if (address != INADDR_NONE) return ntohl(address);
  error = String("Invalid IP address (") + text + ") specified";
  return 0;
}

bool InRange(in_addr_t address, in_addr_t from, in_addr_t to) {
  if (to == 0) return address == from;
  return (from <= address && address <= to) || (to <= address && address <= from);
}

}  // namespace

bool islistsetchar(char c) {
  return IsDigit(c) || c == '.' || c == '-' || c == ',';
}

void getitem(String& work, in_addr_t& from, in_addr_t& to, String& error) {
  from = to = 0;
  int begin = 1, end = 0;
  while (begin <= work.Length() && !IsDigit(work[begin])) ++begin;
  if (begin > work.Length()) {
    work = "";
    return;
  }

  const String first = AddressText(work, begin, end);
  const in_addr_t address = ParseAddress(first, error);
  if (address == 0) {
    work.Delete(1, begin - 1);
    return;
  }
  from = address;
  if (end < work.Length() && work[end] == '-') to = ParseAddress(AddressText(work, end + 1, end), error);
  work.Delete(1, end);
}

int IPAllowed(in_addr address, const String& list, String& error) {
  error = "";
  const in_addr_t wanted = ntohl(address.s_addr);
  String work;
  char illegal = '\0';
  bool hasIllegal = false;
  for (int i = 1; i <= list.Length(); ++i) {
    if (islistsetchar(list[i])) {
      work.AddChar(list[i]);
    } else if (!hasIllegal) {
      hasIllegal = true;
      illegal = list[i];
    }
  }

  int allowed = 0;
  while (!allowed) {
    in_addr_t from, to;
    getitem(work, from, to, error);
    if (from == 0) break;
    allowed = InRange(wanted, from, to);
  }
  if (error.Length() == 0 && hasIllegal) error = String("Illegal character (") + illegal + ") specified";
  return allowed;
}

int IPAllowed(const char* address, const String& list, String& error) {
  const in_addr_t number = inet_addr(address);
  return number == INADDR_NONE ? 0 : IPAllowed(in_addr{number}, list, error);
}

bool PassesFilter(in_addr peer, const String& activefilter) {
  char text[24];
  return activefilter.Pos(inet_ntoa_safe(peer, text, sizeof text)) > 0;
}
