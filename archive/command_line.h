#ifndef QUILLMERE_ARCHIVE_COMMAND_LINE_H_
#define QUILLMERE_ARCHIVE_COMMAND_LINE_H_

/// The program `quillmere-archive`: runs the command that its arguments, those of main, name.
/// Standard descriptors that are closed are occupied first. What no command has dealt with is said
/// on std::cerr. Returns a Status: kArchiveFailed also when standard output can't be written.
int RunCommandLine(int argc, char** argv);

#endif  // QUILLMERE_ARCHIVE_COMMAND_LINE_H_
