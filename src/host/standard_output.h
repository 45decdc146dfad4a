#ifndef QUILLMERE_HOST_STANDARD_OUTPUT_H_
#define QUILLMERE_HOST_STANDARD_OUTPUT_H_

/// Makes standard output, and the pipe behind it if it is one, take large pieces at a time. To be
/// called before anything is written to it. A terminal stays as it is.
void WidenStandardOutput();

#endif  // QUILLMERE_HOST_STANDARD_OUTPUT_H_
