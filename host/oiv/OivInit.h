#pragma once

// Initialises Open Inventor and the host's own node classes. Safe to call any number of times and
// from any thread; only the first call does the work. The database is never shut down again: a
// package may still hold node classes when the process exits.
void oivInit();
