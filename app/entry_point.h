// The bootstrap driver.
#pragma once

struct image___update___root_t;

// Loads the version info document that the command line names and brings the run-time environment
// up to date with it. `unused` is ignored. Ends the process with status 1 when the document cannot
// be loaded; lets the Error of a failing update escape.
void entry_point(const char* unused, const image___update___root_t* command_line);
