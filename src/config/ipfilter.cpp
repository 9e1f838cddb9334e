#include "config/ipfilter.h"

#include <arpa/inet.h>

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
in_addr_t ParseAddress(const String& text, String& error) {
  const in_addr_t address = inet_addr(text.CStr());
  if (address != INADDR_NONE) return ntohl(address);
  error = String("Invalid IP address (") + text + ") specified";
  return 0;
}

// Reads the item at position `begin` or behind it.  Returns where the next one may begin: behind the separator, or
// where the text stands that is no address.
int ItemAt(const String& work, int begin, in_addr_t& from, in_addr_t& to, String& error) {
  from = to = 0;
  while (begin <= work.Length() && !IsDigit(work[begin])) ++begin;
  if (begin > work.Length()) return begin;

  int end = 0;
  from = ParseAddress(AddressText(work, begin, end), error);
  if (from == 0) return begin;
  if (end < work.Length() && work[end] == '-') to = ParseAddress(AddressText(work, end + 1, end), error);
  return end + 1;
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
  work.Delete(1, ItemAt(work, 1, from, to, error) - 1);
}

int IPAllowed(in_addr address, const String& list, String& error) {
  error = "";
  const in_addr_t wanted = ntohl(address.s_addr);
  String work;
  work.Reserve(list.Length());
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
  in_addr_t from = 1, to = 0;
  for (int next = 1; from != 0 && !allowed;) {
    next = ItemAt(work, next, from, to, error);
    allowed = from != 0 && InRange(wanted, from, to);
  }
  if (error.Length() == 0 && hasIllegal) error = String("Illegal character (") + illegal + ") specified";
  return allowed;
}

int IPAllowed(const char* address, const String& list, String& error) {
  const in_addr_t number = inet_addr(address);
  return number == INADDR_NONE ? 0 : IPAllowed(in_addr{number}, list, error);
}

bool PassesFilter(in_addr peer, const String& activefilter) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &peer, text, sizeof text);
  return activefilter.Pos(text) > 0;
}
