// The JSON files, byte for byte, and what a reader makes of others.

#include "archive/manifest.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

const std::string kInfoText = R"({
    "format": "quillmere-archive",
    "version": 1,
    "program": "quillmere-archive 1.0.0",
    "server": "backup1",
    "created": 1600123456,
    "created_utc": "2020-09-14T22:44:16Z",
    "compression_level": 3
}
)";

const std::string kSetText = R"({
    "format": "quillmere-archive set",
    "version": 1,
    "server": "backup1",
    "client": "alpha",
    "policy": "Files",
    "schedule": "Daily",
    "backup_id": "alpha_253402300800",
    "create_time": 253402300800,
    "create_time_utc": null,
    "size_bytes": 18446744073709551615,
    "images": [
        {
            "backup_id": "alpha_2"
        },
        {
            "backup_id": "\ufffdb_1",
            "backup_id_base64": "/2JfMQ=="
        }
    ]
}
)";

const std::string kManifestText = R"({
    "format": "quillmere-archive image",
    "version": 1,
    "program": "quillmere-archive 1.0.0",
    "server": "backup1",
    "client": "alpha",
    "policy": "Fi \"les",
    "schedule": "Daily",
    "backup_id": "alpha_1600123456",
    "backup_time": 1600123456,
    "backup_time_utc": "2020-09-14T22:44:16Z",
    "size": "3.5M",
    "size_bytes": 3670016,
    "files": -1,
    "exported": 1600200000,
    "exported_utc": "2020-09-15T20:00:00Z",
    "export_seconds": 1.25,
    "document": {
        "file": "alpha_1600123456.json.zst",
        "bytes": 7182,
        "sha256": "aa",
        "stored_bytes": 812,
        "stored_sha256": "bb"
    },
    "entries": 12,
    "commands": [
        {
            "command": "qvmeta",
            "status": 0,
            "complaints": [
                {
                    "text": "licence expires"
                }
            ]
        },
        {
            "command": "qvroll",
            "status": 0,
            "complaints": []
        }
    ]
}
)";

/// `text` with the UTF-8 of U+FFFD where it is written as an escape.
std::string WithReplacement(std::string text) {
  const std::string escape = "\\ufffd";
  return text.replace(text.find(escape), escape.size(), "\xEF\xBF\xBD");
}

Manifest AManifest() {
  return {.program = "quillmere-archive 1.0.0",
          .server = "backup1",
          .client = "alpha",
          .policy = "Fi \"les",
          .schedule = "Daily",
          .backup_id = "alpha_1600123456",
          .backup_time = 1600123456,
          .size = "3.5M",
          .size_bytes = 3670016,
          .files = -1,
          .exported = 1600200000,
          .export_seconds = 1.25,
          .document = {.file = "alpha_1600123456.json.zst",
                       .bytes = 7182,
                       .sha256 = "aa",
                       .stored_bytes = 812,
                       .stored_sha256 = "bb"},
          .entries = 12,
          .commands = {{.command = "qvmeta", .status = 0, .complaints = {"licence expires"}},
                       {.command = "qvroll", .status = 0, .complaints = {}}}};
}

std::string ErrorOf(const std::string& text) {
  std::string error;
  const bool is_read = ReadManifest(text, &error).has_value();
  EXPECT_EQ(is_read, error.empty());
  return error;
}

/// kManifestText with the first `from` replaced.
std::string With(const std::string& from, const std::string& to) {
  std::string text = kManifestText;
  return text.replace(text.find(from), from.size(), to);
}

}  // namespace

TEST(ArchiveInfo, IsWrittenAndRead) {
  const ArchiveInfo info{.program = "quillmere-archive 1.0.0",
                         .server = "backup1",
                         .created = 1600123456,
                         .compression_level = 3};
  EXPECT_EQ(TextOf(info), kInfoText);
  std::string error;
  EXPECT_EQ(TextOf(ReadArchiveInfo(kInfoText, &error).value()), kInfoText);
}

TEST(SetFile, IsWrittenAndReadWhateverBytesItsNamesHave) {
  const SetFile set{.server = "backup1",
                    .client = "alpha",
                    .policy = "Files",
                    .schedule = "Daily",
                    .backup_id = "alpha_253402300800",
                    .create_time = 253402300800,
                    .size_bytes = 18446744073709551615U,
                    .images = {"alpha_2",
                               "\xFF"
                               "b_1"}};
  EXPECT_EQ(TextOf(set), WithReplacement(kSetText));
  std::string error;
  EXPECT_EQ(TextOf(ReadSetFile(WithReplacement(kSetText), &error).value()),
            WithReplacement(kSetText));
}

TEST(Manifest, IsWrittenAndRead) {
  EXPECT_EQ(TextOf(AManifest()), kManifestText);
  std::string error;
  EXPECT_EQ(TextOf(ReadManifest(kManifestText, &error).value()), kManifestText);
}

TEST(Manifest, ReadersIgnoreKeysThatTheyDoNotKnow) {
  EXPECT_EQ(ErrorOf(With("\"entries\"", "\"more\": [{}], \"entries\"")), "");
}

TEST(Manifest, ReadersSayWhatIsWrong) {
  const std::vector<std::pair<std::string, std::string>> kCases = {
      {"", "not JSON"},
      {kManifestText.substr(0, kManifestText.size() - 3), "not JSON"},
      {"[]", "not of quillmere-archive"},
      {"{}", "not of quillmere-archive"},
      {kInfoText, "not of quillmere-archive"},
      {With("image\"", "image\", \"format\": 1"), "not of quillmere-archive"},
      {With("\"version\": 1", "\"version\": 2"), "format version 2 is newer than this program"},
      {With("\"version\": 1", "\"version\": 0"), "version is missing or wrong"},
      {With("\"version\": 1", "\"version\": \"1\""), "version is missing or wrong"},
      {With("\"client\": ", "\"x\": "), "client is missing or wrong"},
      {With("\"client\": \"alpha\"", "\"client\": 1"), "client is missing or wrong"},
      {With("\"client\": ", "\"client_base64\": \"*\", \"client\": "),
       "client_base64 is missing or wrong"},
      {With("\"client\": ", "\"client_base64\": \"YQ\", \"client\": "),
       "client_base64 is missing or wrong"},
      {With("\"client\": ", "\"client_base64\": \"====\", \"client\": "),
       "client_base64 is missing or wrong"},
      {With("\"client\": ", "\"client_base64\": \" YQ==\", \"client\": "),
       "client_base64 is missing or wrong"},
      {With("\"client\": ", "\"client_base64\": \"YQ==\\n\", \"client\": "),
       "client_base64 is missing or wrong"},
      {With("\"client\": ", "\"client_base64\": \"YR==\", \"client\": "),
       "client_base64 is missing or wrong"},
      {With("\"client\": ", "\"client_base64\": 1, \"client\": "),
       "client_base64 is missing or wrong"},
      {With("\"backup_time\": 1600123456", "\"backup_time\": 1.5"),
       "backup_time is missing or wrong"},
      {With("\"backup_time\": 1600123456", "\"backup_time\": 9223372036854775808"),
       "backup_time is missing or wrong"},
      {With("\"bytes\": 7182", "\"bytes\": -1"), "bytes is missing or wrong"},
      {With("\"entries\": 12,", ""), "entries is missing or wrong"},
      {With("\"export_seconds\": 1.25", "\"export_seconds\": null"),
       "export_seconds is missing or wrong"},
      {With("\"export_seconds\": 1.25,", ""), "export_seconds is missing or wrong"},
      {With("\"document\": {", "\"document\": [], \"x\": {"), "document is missing or wrong"},
      {With("\"document\": {", "\"x\": {"), "document is missing or wrong"},
      {With("\"commands\": [", "\"commands\": {}, \"x\": ["), "commands is missing or wrong"},
      {With("\"commands\": [", "\"x\": ["), "commands is missing or wrong"},
      {With("\"commands\": [", "\"commands\": [1,"), "command is missing or wrong"},
  };
  for (const auto& [text, error] : kCases) {
    EXPECT_EQ(ErrorOf(text), error) << text;
  }
}

TEST(Mark, IsTheManifestWithTheTimeBehindIt) {
  const std::string kTime =
      ",\n"
      "    \"pruned\": 1600300000,\n"
      "    \"pruned_utc\": \"2020-09-16T23:46:40Z\"\n"
      "}\n";
  const std::string kEnd = "\n}\n";
  // Also with what the writer doesn't know, and as another program may lay it out.
  for (const std::string& text :
       {kManifestText, With("\"entries\": 12", "\"entries\":12,\"more\":[{}]")}) {
    const std::string members = text.substr(0, text.size() - kEnd.size());
    for (const std::string& manifest : {text, members + "}", members + "\r\n\t }  \n"}) {
      const std::string mark = MarkOf(manifest, 1600300000);
      EXPECT_EQ(mark, members + kTime);
      std::string error;
      EXPECT_EQ(TextOf(ReadMark(mark, &error).value()), kManifestText);
    }
  }
}

TEST(Mark, ReadersSayWhatIsWrong) {
  std::string error;
  EXPECT_EQ(ReadMark(kManifestText, &error), std::nullopt);
  EXPECT_EQ(error, "pruned is missing or wrong");
  EXPECT_EQ(ReadMark(kInfoText, &error), std::nullopt);
  EXPECT_EQ(error, "not of quillmere-archive");
}

TEST(Manifest, TheLargestTimeIsRead) {
  EXPECT_EQ(ErrorOf(With("\"backup_time\": 1600123456", "\"backup_time\": 9223372036854775807")),
            "");
}
