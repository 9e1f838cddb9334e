// Letters and searches in plain memory.  Everything works on its arguments alone.
#pragma once

// ASCII letters only; other bytes come back unchanged.
char UpCase(char c);
char LoCase(char c);
char* strupper(char* s);
char* strlower(char* s);
char* strupper(char* s, int n);
char* strlower(char* s, int n);

// True when every byte is a digit or '-', in any number and order; the empty text passes.
bool isdecimalnum(const char* s);
// True when all n bytes are digits.
bool isdecimalnum(const char* s, int n);

// 1-based position of the first `pat` in `buf`, or 0; nulls and zero lengths give 0.  memposi ignores ASCII case.
int mempos(const char* buf, int buflen, const char* pat, int patlen);
int memposi(const char* buf, int buflen, const char* pat, int patlen);
