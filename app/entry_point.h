// Runs the bootstrapper with a parsed command line.
#pragma once

struct image___update___root_t;

// Loads the version info document that the command line names and brings the run-time environment
// up to date with it. `unused` is ignored. Ends the process with status 1 if the document cannot be
// loaded. Throws Error if an update fails.
void entry_point(const char* unused, const image___update___root_t* command_line);
