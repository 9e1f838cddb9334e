// The agent's byte string.
//
// Positions are 1-based throughout, 0 means "not found".  A String may hold NUL bytes: packet bodies live in it as
// well as text.  Objects are plain values; one object must not be written by two threads at once.
//
// What a String held is overwritten when it lets go of it, in growing as in going away: most texts here come from
// requests and settings, and those may be passwords.
#pragma once

class String {
 public:
  String() = default;
  // A buffer of exactly `size` bytes that never grows; size 0 gives an empty, growable string.
  explicit String(int size);
  String(const char* s);
  String(const char* bytes, int n);  // n = -1: strlen
  String(const String& other);
  String(String&& other) noexcept;
  ~String();

  String& operator=(const char* s);
  String& operator=(const String& other);
  String& operator=(String&& other) noexcept;

  // Replaces the content by n bytes (-1: strlen).  Null or n = 0 frees the buffer; bytes of the string's own buffer
  // change nothing; a fixed string keeps what fits.  Returns the new length.
  int CopyData(const char* src, int n);
  // Appends n bytes (-1: strlen); `src` may lie in the string's own buffer.  A fixed string takes what fits.
  void AddData(const char* src, int n);
  void AddChar(char c);

  String operator+(const String& other) const;
  String operator+(const char* s) const;
  String operator+(char c) const;
  String& operator+=(const String& other);
  String& operator+=(const char* s);
  String& operator+=(char c);

  bool operator==(const String& other) const;
  bool operator==(const char* s) const;  // null equals an empty string
  bool operator!=(const String& other) const { return !(*this == other); }
  bool operator!=(const char* s) const { return !(*this == s); }

  // The byte at 1-based position i; not checked.
  char& operator[](int i) { return data[i - 1]; }
  char operator[](int i) const { return data[i - 1]; }

  // May be null when nothing was ever stored.
  char* Data() { return data; }
  const char* Data() const { return data; }
  int Length() const { return length; }
  // The text for who ends it at its first NUL; never null.
  const char* CStr() const { return data == nullptr ? "" : data; }
  // Makes every byte behind the text zero, up to the capacity; never leaves Data() null.
  void SetZero();

  void LowerCase();       // ASCII only
  void SetLength(int n);  // new bytes are zero; 0 frees the buffer
  void Reserve(int n);    // room for n bytes; neither length nor content changes
  void Delete(int index, int count);
  // Drops leading and trailing bytes whose value as a signed char is at most 32, so 0x80-0xFF go as well: the
  // servers rely on it.
  String& Trim();

  int Pos(char c) const;
  int Pos(const char* s, int n = -1) const;
  int Pos(const String& s) const;
  // First hit of `pattern`; with wholeWord a hit counts only between bytes that are not alphanumeric.  An empty
  // pattern or string gives 0.
  int Search(String pattern, int caseSensitive, int wholeWord) const;

  String Copy(int index, int count) const;
  // Copies into a caller's buffer of `size` bytes (-1: as long as it takes) and closes it with a NUL.  A null
  // buffer, size 0 or an empty string writes nothing at all, not even the NUL.
  char* StrCpy(char* buf, int size) const;
  // The n-th (1-based) field between delimiters; neighbouring delimiters hold empty fields between them.
  String GetWord(int n, char delimiter) const;
  String& RemoveRepeats(char c);
  // Replaces left to right without looking at inserted text again, and only while more than `from` is left: a
  // remainder that is exactly `from` stays.  Peers and saved files depend on that end rule.
  String ReplaceAll(const char* from, const char* to, int caseSensitive) const;

 private:
  void prAllocMem(int n);
  void Resize(int n);
  void Grow(int n);
  void End(int n);
  int Fitting(int n) const;

  int length = 0;
  int capacity = 0;  // bytes of the buffer, of which the NUL takes one
  char* data = nullptr;
  int fixed = 0;
};
