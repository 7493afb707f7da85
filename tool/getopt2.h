// The tool's own option parser. Its ways with odd command lines are part of what the tool does.
#ifndef KESTRUNE_TOOL_GETOPT2_H
#define KESTRUNE_TOOL_GETOPT2_H

namespace kestrune::tool {

// Where the parser stands; it parses one command line per process and is never reset.
extern int optind;  // word of the vector, from 1
extern int offset;  // position inside that word, from 0

// Reads the next option of `argv`. `options` lists the letters, each followed by ':' when it takes an
// argument. Returns
//   a letter  *argument is the option's argument (a pointer into argv) or null where there is none
//   '?'       illegal option, told on standard error; *argument may hold the word that looked like one
//   0         the end of a word was read as an option; nothing to do
//   -1        a word that is no option (in *argument), or the end of the vector (*argument is null)
int getopt2(int argc, char** argv, const char* options, char** argument);

}  // namespace kestrune::tool

#endif
