#ifndef QUILLMERE_STANDIN_FAULTS_H_
#define QUILLMERE_STANDIN_FAULTS_H_

#include <string>
#include <string_view>

// What goes wrong on demand. The file "faults" below the root says what; without it nothing does.
//
//   file:  line*
//   line:  command SP image SP action [SP argument] NL
//
//   qvmeta alpha_1500055473 fail
//   * * complain licence expires in 12 days
//
// The command is "qvroll" (a listing), "qvroll-id", "qvmeta" or "rec_unfold", the image a backup
// id;
// "*" stands for any. Of the lines that fit, each is obeyed, but of those that end the output
// half-way the last one only.

/// Obeys what is to happen before `command` prints anything about the image `backup_id` (of the
/// whole catalogue, where that is empty): waits, complains on standard error, forgets the image.
/// Remembers how its output is to end.
void BeginFaults(const std::string& root, std::string_view command, std::string_view backup_id);

/// The same for rec_unfold, which knows the file of an image only.
void BeginFaultsOfFile(const std::string& root, std::string_view catalogue_file);

/// Whether only a part of the output is to be printed.
bool IsOutputCut();

/// The part of `output` that is to be printed: all of it, or half, to the end of a line.
std::string_view PartToPrint(std::string_view output);

/// Ends the process as the faults have it, or returns. To be called behind what was printed.
void EndFaults();

/// Whether the image whose files begin with `image_path` was forgotten. Nothing is, unless the file
/// "faults" is there.
bool IsForgotten(const std::string& root, const std::string& image_path);

#endif  // QUILLMERE_STANDIN_FAULTS_H_
