// The process's place in the system: its streams and its own session.
#pragma once

// Opens those of the descriptors 0 to 2 that are closed on /dev/null, so that nothing else of the agent's gets
// these numbers.  First of all.
void OpenMissingStreams();

// Goes on in a child of a new session, standard streams on /dev/null, inherited descriptors closed, SIGHUP handled.
// The parent prints "Daemon started" and ends with status 0.  Returns 0 in the child, -1 when fork failed.  The
// working directory stays, so that relative paths keep their meaning.
int daemon_init();
