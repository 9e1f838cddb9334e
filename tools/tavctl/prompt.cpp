#include "tavctl/prompt.h"

#include <fcntl.h>
#include <stdio.h>
#include <termios.h>
#include <unistd.h>

#include "core/closers.h"
#include "tavctl/output.h"

bool AskForPassword(String& password, TFailure& failure) {
  const TFd terminal(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
  termios before{};
  if (!terminal.IsOpen() || isatty(STDERR_FILENO) == 0 || tcgetattr(terminal.Get(), &before) != 0)
    return Fail(failure, TKind::kConfig, "no password",
                "give --password-file FILE (or -), --agent-config FILE, TAV_PASSWORD_FILE or TAV_PASSWORD");
  const char question[] = "Agent's password: ";
  termios silent = before;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  (void)!write(terminal.Get(), question, sizeof question - 1);
  tcsetattr(terminal.Get(), TCSAFLUSH, &silent);
  const bool read = ReadSecretLine(terminal.Get(), "the terminal", password, failure);
  tcsetattr(terminal.Get(), TCSAFLUSH, &before);
  (void)!write(terminal.Get(), "\n", 1);
  return read;
}

bool AskToGoOn(const std::string& command, const std::string& where, TFailure& failure) {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)
    return Fail(failure, TKind::kUsage,
                "'" + command + "' changes the host and needs --yes when nobody can be asked");
  WriteErr("tavctl: '" + command + "' on " + where + ": go on? [y/N] ");
  char answer[16] = "";
  if (fgets(answer, sizeof answer, stdin) != nullptr && (answer[0] == 'y' || answer[0] == 'Y')) return true;
  return Fail(failure, TKind::kUsage, "not confirmed, nothing was done", "answer y, or give --yes");
}
