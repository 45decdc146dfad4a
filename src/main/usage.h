#ifndef QUILLMERE_MAIN_USAGE_H_
#define QUILLMERE_MAIN_USAGE_H_

/// Writes the usage text to standard output, each line led by the name `program`.
void PrintUsage(const char* program);

#endif  // QUILLMERE_MAIN_USAGE_H_
