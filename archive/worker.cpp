#include "archive/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include <boost/property_tree/ptree.hpp>

#include "archive/document.h"
#include "archive/names.h"
#include "archive/path_filter.h"
#include "archive/record.h"
#include "archive/stored_document.h"
#include "export/catalogue_file.h"
#include "export/file_entries.h"
#include "export/json_document.h"
#include "export/metadata.h"
#include "host/command_output.h"

namespace {

constexpr std::size_t kMostComplaints = std::size_t{64} * 1024;  // bytes, of one command
const std::string kMetadataFile = "qvmeta.json";

/// The tool's units call a plain function when they wait for a command, so what it needs is here.
struct Watch {
  int seconds = 0;
  const std::function<void()>* on_silence = nullptr;
  off_t complaints_end = 0;  // of what the command has written to standard error
};
Watch watch;

/// Waits for the output of a command, which may go on complaining meanwhile.
void WaitForOutput(int descriptor) {
  alarm(0);
  pollfd output{.fd = descriptor, .events = POLLIN, .revents = 0};
  while (poll(&output, 1, watch.seconds * 1000) == 0) {
    const off_t end = lseek(STDERR_FILENO, 0, SEEK_CUR);
    if (end == watch.complaints_end) {
      (*watch.on_silence)();
      std::exit(0);  // What is left of the process group is ended by the parent.
    }
    watch.complaints_end = end;
  }
  // For one that closes its output and stays: it is waited for where nobody looks.
  alarm(static_cast<unsigned>(watch.seconds) + 1);
}

/// Standard error of the next command. In memory, and of a fixed size: a command that complains
/// without end fills no disk.
class Complaints {
 public:
  Complaints() : memory_(memfd_create("complaints", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
    if (memory_.get() < 0 || ftruncate(memory_.get(), kMostComplaints) != 0) {
      throw SystemError("keep", "complaints");
    }
    fcntl(memory_.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK);
    dup2(memory_.get(), STDERR_FILENO);
    watch.complaints_end = 0;
  }

  [[nodiscard]] std::vector<std::string> Lines() const {
    const auto end = static_cast<std::size_t>(lseek(memory_.get(), 0, SEEK_CUR));
    std::string text(std::min(end, kMostComplaints), '\0');
    text.resize(static_cast<std::size_t>(
        std::max(pread(memory_.get(), text.data(), text.size(), 0), ssize_t{0})));
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
      lines.push_back(line);
    }
    return lines;
  }

 private:
  Descriptor memory_;
};

/// Takes what is written to a stream as long as it lives.
class Captured {
 public:
  explicit Captured(std::ostream* stream)
      : stream_(stream), former_(stream->rdbuf(text_.rdbuf())) {}
  ~Captured() { stream_->rdbuf(former_); }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  [[nodiscard]] std::string Text() const {
    std::string text = text_.str();
    if (text.ends_with('\n')) {
      text.pop_back();
    }
    return text;
  }

 private:
  std::ostringstream text_;
  std::ostream* stream_;
  std::streambuf* former_;
};

enum class Record : std::uint64_t { kCommandStarts = 1, kResult };

std::string RecordOf(const ExportResult& result) {
  RecordWriter writer;
  writer.Put(static_cast<std::uint64_t>(Record::kResult));
  writer.Put(result.failure);
  writer.Put(result.stored_bytes);
  writer.Put(result.entries);
  writer.Put(std::uint64_t{result.commands.size()});
  for (const CommandRun& run : result.commands) {
    writer.Put(run.command);
    writer.Put(static_cast<std::uint64_t>(run.status));
    writer.Put(std::uint64_t{run.complaints.size()});
    for (const std::string& line : run.complaints) {
      writer.Put(line);
    }
  }
  return writer.text();
}

std::vector<CommandRun> ReadCommands(RecordReader* reader) {
  std::vector<CommandRun> commands;
  for (std::uint64_t left = reader->Number(); left > 0; --left) {
    CommandRun& run = commands.emplace_back();
    run.command = reader->Text();
    run.status = static_cast<std::int64_t>(reader->Number());
    for (std::uint64_t lines = reader->Number(); lines > 0; --lines) {
      run.complaints.emplace_back(reader->Text());
    }
  }
  return commands;
}

ExportResult ReadResult(RecordReader* reader) {
  ExportResult result;
  result.failure = reader->Text();
  result.stored_bytes = reader->Number();
  result.entries = reader->Number();
  result.commands = ReadCommands(reader);
  return result;
}

class ImageExport {
 public:
  ImageExport(const ExportRequest& request, const Staging& staging, int results)
      : request_(request),
        staging_(staging),
        results_(results),
        manifest_(request.manifest),
        id_(ShellWord(manifest_.backup_id)) {}

  void Run() {
    const auto start = std::chrono::steady_clock::now();
    try {
      Export();
      const auto time = std::chrono::steady_clock::now() - start;
      const auto count = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
      manifest_.export_seconds = static_cast<double>(count) / 1000;
      manifest_.entries = result_.entries;
      manifest_.commands = result_.commands;
      WriteManifest(staging_, manifest_);
    } catch (const std::exception& error) {
      result_.failure = error.what();
    }
    WriteAll(results_, RecordOf(result_));
  }

 private:
  void Export() {
    // Messages name the file as it is called here, and not where this run has it.
    if (fchdir(staging_.work.descriptor()) != 0) {
      throw SystemError("open", staging_.work.path());
    }
    const std::string catalogue_directory = CatalogueDirectory(manifest_.backup_id);
    boost::property_tree::ptree metadata;
    RunCommand("qvmeta", [&] { return FetchMetadata(id_, kMetadataFile, &metadata); });
    std::string catalogue_file;
    RunCommand("qvroll", [&] { return FindCatalogueFile(id_, &catalogue_file); });
    const std::string path = ShellWord(catalogue_directory + '/' + catalogue_file);
    FileEntryTable entries;
    RunCommand("rec_unfold", [&] { return ReadFileEntries(path, &entries); });
    result_.entries = entries.size();
    WriteDocument(&metadata, entries);
  }

  /// Runs a unit of the tool that runs `command`. Throws when either fails, with what tells most.
  void RunCommand(const std::string& command, const std::function<int()>& unit) {
    RecordWriter note;
    note.Put(static_cast<std::uint64_t>(Record::kCommandStarts));
    note.Put(command);
    WriteAll(results_, note.text());

    const Complaints complaints;
    CommandRun run{.command = command, .status = 0, .complaints = {}};
    const auto tell_silence = [&] {
      run.complaints = complaints.Lines();
      result_.commands.push_back(run);
      result_.failure = SilenceOf(command, request_.timeout);
      WriteAll(results_, RecordOf(result_));
    };
    int status = 0;
    std::string thrown;
    const auto call = [&] {
      try {
        status = unit();
      } catch (const std::exception& error) {
        thrown = error.what();
      }
    };
    const std::string message = RunUnits(request_.timeout, tell_silence, call);
    run.complaints = complaints.Lines();
    result_.commands.push_back(run);
    // What a command says of itself explains best why its output was not understood.
    const std::string failure = FailureOf(command, CommandOutput::last_status());
    for (const std::string& reason : {failure, thrown, status != 0 ? message : ""}) {
      if (!reason.empty()) {
        throw std::runtime_error(reason);
      }
    }
  }

  void WriteDocument(boost::property_tree::ptree* metadata, const FileEntryTable& entries) {
    PathFilterWriter filter(staging_.image);
    DocumentParser parser([&](const RawEntry& entry) { filter.Take(entry); });
    DocumentWriter writer(staging_.image, FileNameOf(manifest_.backup_id),
                          request_.compression_level,
                          [&](std::string_view piece) { parser.Parse(piece); });
    std::ostream stream(&writer);
    std::string refused;
    try {
      WriteDocumentTo(
          &stream, metadata, "fentries", [&](std::ostream& out) { entries.WriteArray(out); }, "");
    } catch (const std::exception& error) {
      refused = error.what();
    }
    // When it could not be written, this says why.
    manifest_.document = writer.Finish();
    result_.stored_bytes = manifest_.document.stored_bytes;
    if (!refused.empty() || !parser.Finish(&refused)) {
      throw std::runtime_error(refused);
    }
    filter.Finish(manifest_.document.sha256, parser);
  }

  const ExportRequest& request_;
  const Staging& staging_;
  int results_;
  Manifest manifest_;
  std::string id_;  // as the shell takes it
  ExportResult result_;
};

}  // namespace

std::string ShellWord(std::string_view text) {
  std::string word = "'";
  for (const char c : text) {
    if (c == '\'') {
      word += "'\\''";
    } else {
      word += c;
    }
  }
  return word += '\'';
}

std::string FailureOf(const std::string& command, int wait_status) {
  if (wait_status == -1 || wait_status == 0) {
    return "";
  }
  if (WIFSIGNALED(wait_status)) {
    return command + " was ended by signal " + std::to_string(WTERMSIG(wait_status));
  }
  return command + " ended with status " + std::to_string(WEXITSTATUS(wait_status));
}

std::string SilenceOf(const std::string& command, const Age& timeout) {
  return command + " printed nothing for " + timeout.text;
}

std::string RunUnits(const Age& timeout, const std::function<void()>& on_silence,
                     const std::function<void()>& call) {
  constexpr std::int64_t kMostSeconds = INT_MAX / 1000;
  watch.seconds = static_cast<int>(std::min<std::int64_t>(timeout.duration.count(), kMostSeconds));
  watch.on_silence = &on_silence;
  watch.complaints_end = lseek(STDERR_FILENO, 0, SEEK_CUR);  // of a pipe there is none
  CommandOutput::OnWait(WaitForOutput);
  const Captured messages(&std::cerr);
  call();
  alarm(0);
  return messages.Text();
}

void ExportImage(const ExportRequest& request, const Staging& staging, int results) {
  ImageExport(request, staging, results).Run();
}

std::optional<ExportResult> ReadExportResult(std::string_view results) {
  RecordReader reader(results);
  while (static_cast<Record>(reader.Number()) == Record::kCommandStarts) {
    reader.Text();
  }
  ExportResult result = ReadResult(&reader);
  return reader.is_whole() ? std::optional(std::move(result)) : std::nullopt;
}

std::string FailureOfWorker(const ExportRequest& request, std::string_view results,
                            int wait_status) {
  RecordReader reader(results);
  std::string_view command;
  while (static_cast<Record>(reader.Number()) == Record::kCommandStarts) {
    command = reader.Text();
  }
  const bool is_alarmed = WIFSIGNALED(wait_status) && WTERMSIG(wait_status) == SIGALRM;
  return is_alarmed ? SilenceOf(std::string(command), request.timeout)
                    : FailureOf("the worker", wait_status);
}
