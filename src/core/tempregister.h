// The temporary files that must not outlive this process.
//
// Whoever makes one registers it first and forgets it when it is gone; what is still registered when the process
// ends or is replaced, in the middle of requests, is removed then.  Any thread may call.
#pragma once

// Remembers a file that must not outlive this process.  False when there is no memory, or when RemoveTempFiles()
// was called within the last second: the caller treats it as a failure to create.
bool RegisterTempFile(const char* path);

// The same for a folder, which is removed if it is empty then.  One that is registered already stays so, once.
bool RegisterTempFolder(const char* path);

// Forgets it: it has been removed, or is handed over.
void ForgetTempFile(const char* path);

// Removes every registered file but these two (null: none); just before the process ends or is replaced.  Does not
// allocate and does not wait for ever for a lock, so that it serves where a fault has left one held.
void RemoveTempFiles(const char* spare1, const char* spare2);

// A name that is registered as long as the object lives; then the file is removed and forgotten.
class TTempFile {
 public:
  TTempFile() = default;
  TTempFile(const TTempFile&) = delete;
  TTempFile& operator=(const TTempFile&) = delete;
  ~TTempFile();

  // To be called before the file is made.  False as for RegisterTempFile(), and with an empty path.
  bool Register();

  char path[512] = "";

 private:
  bool registered = false;
};
