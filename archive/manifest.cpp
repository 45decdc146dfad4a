#include "archive/manifest.h"

#include "archive/json_object.h"

const std::string kProgram = "quillmere-archive " QUILLMERE_VERSION;

namespace {

constexpr std::string_view kArchiveFormat = "quillmere-archive";
constexpr std::string_view kManifestFormat = "quillmere-archive image";
constexpr std::string_view kSetFormat = "quillmere-archive set";
constexpr int kVersion = 1;  // of each of them
constexpr std::string_view kPruned = "pruned";

/// `texts` as an array of objects with the member `key`.
Json ArrayOf(const std::vector<std::string>& texts, std::string_view key) {
  Json array = Json::array();
  for (const std::string& text : texts) {
    AddText(key, text, &array.emplace_back());
  }
  return array;
}

std::vector<std::string> TextsFrom(const Json& array, std::string_view key, JsonReader* reader) {
  std::vector<std::string> texts;
  texts.reserve(array.size());
  for (const Json& item : array) {
    texts.push_back(reader->Text(item, key));
  }
  return texts;
}

Json JsonOf(const DocumentFacts& document) {
  Json object;
  object["file"] = document.file;
  object["bytes"] = document.bytes;
  object["sha256"] = document.sha256;
  object["stored_bytes"] = document.stored_bytes;
  object["stored_sha256"] = document.stored_sha256;
  return object;
}

DocumentFacts DocumentFrom(const Json& object, JsonReader* reader) {
  return {.file = reader->Text(object, "file"),
          .bytes = reader->Count(object, "bytes"),
          .sha256 = reader->Text(object, "sha256"),
          .stored_bytes = reader->Count(object, "stored_bytes"),
          .stored_sha256 = reader->Text(object, "stored_sha256")};
}

Json JsonOf(const std::vector<CommandRun>& commands) {
  Json array = Json::array();
  for (const CommandRun& run : commands) {
    Json& object = array.emplace_back();
    object["command"] = run.command;
    object["status"] = run.status;
    object["complaints"] = ArrayOf(run.complaints, "text");
  }
  return array;
}

std::vector<CommandRun> CommandsFrom(const Json& array, JsonReader* reader) {
  std::vector<CommandRun> commands;
  for (const Json& object : array) {
    commands.push_back(
        {.command = reader->Text(object, "command"),
         .status = reader->Integer(object, "status"),
         .complaints = TextsFrom(reader->Array(object, "complaints"), "text", reader)});
  }
  return commands;
}

Manifest ManifestFrom(JsonReader* reader) {
  return {.program = reader->Text("program"),
          .server = reader->Text("server"),
          .client = reader->Text("client"),
          .policy = reader->Text("policy"),
          .schedule = reader->Text("schedule"),
          .backup_id = reader->Text("backup_id"),
          .backup_time = reader->Integer("backup_time"),
          .size = reader->Text("size"),
          .size_bytes = reader->Count("size_bytes"),
          .files = reader->Integer("files"),
          .exported = reader->Integer("exported"),
          .export_seconds = reader->Number("export_seconds"),
          .document = DocumentFrom(reader->Object("document"), reader),
          .entries = reader->Count("entries"),
          .commands = CommandsFrom(reader->Array("commands"), reader)};
}

/// `value` if the reader found everything right.
template <class Value>
std::optional<Value> IfRight(Value value, const JsonReader& reader, std::string* error) {
  *error = reader.error();
  return error->empty() ? std::optional(std::move(value)) : std::nullopt;
}

}  // namespace

std::string TextOf(const ArchiveInfo& info) {
  Json object = NewJson(kArchiveFormat, kVersion);
  object["program"] = info.program;
  AddText("server", info.server, &object);
  AddTime("created", info.created, &object);
  object["compression_level"] = info.compression_level;
  return JsonText(object);
}

std::optional<ArchiveInfo> ReadArchiveInfo(std::string_view text, std::string* error) {
  JsonReader reader(text, kArchiveFormat, kVersion);
  ArchiveInfo info{.program = reader.Text("program"),
                   .server = reader.Text("server"),
                   .created = reader.Integer("created"),
                   .compression_level = reader.Count("compression_level")};
  return IfRight(std::move(info), reader, error);
}

std::string TextOf(const Manifest& manifest) {
  Json object = NewJson(kManifestFormat, kVersion);
  object["program"] = manifest.program;
  AddText("server", manifest.server, &object);
  AddText("client", manifest.client, &object);
  AddText("policy", manifest.policy, &object);
  AddText("schedule", manifest.schedule, &object);
  AddText("backup_id", manifest.backup_id, &object);
  AddTime("backup_time", manifest.backup_time, &object);
  AddText("size", manifest.size, &object);
  object["size_bytes"] = manifest.size_bytes;
  object["files"] = manifest.files;
  AddTime("exported", manifest.exported, &object);
  object["export_seconds"] = manifest.export_seconds;
  object["document"] = JsonOf(manifest.document);
  object["entries"] = manifest.entries;
  object["commands"] = JsonOf(manifest.commands);
  return JsonText(object);
}

std::optional<Manifest> ReadManifest(std::string_view text, std::string* error) {
  JsonReader reader(text, kManifestFormat, kVersion);
  Manifest manifest = ManifestFrom(&reader);
  return IfRight(std::move(manifest), reader, error);
}

std::string MarkOf(std::string_view text, std::int64_t pruned) {
  const std::string_view members = text.substr(0, text.rfind('}'));
  Json mark;
  AddTime(kPruned, pruned, &mark);
  return std::string(members.substr(0, members.find_last_not_of(" \t\r\n") + 1)) + ',' +
         JsonText(mark).substr(1);
}

std::optional<Manifest> ReadMark(std::string_view text, std::string* error) {
  JsonReader reader(text, kManifestFormat, kVersion);
  Manifest manifest = ManifestFrom(&reader);
  reader.Integer(kPruned);
  return IfRight(std::move(manifest), reader, error);
}

std::string TextOf(const SetFile& set) {
  Json object = NewJson(kSetFormat, kVersion);
  AddText("server", set.server, &object);
  AddText("client", set.client, &object);
  AddText("policy", set.policy, &object);
  AddText("schedule", set.schedule, &object);
  AddText("backup_id", set.backup_id, &object);
  AddTime("create_time", set.create_time, &object);
  object["size_bytes"] = set.size_bytes;
  object["images"] = ArrayOf(set.images, "backup_id");
  return JsonText(object);
}

std::optional<SetFile> ReadSetFile(std::string_view text, std::string* error) {
  JsonReader reader(text, kSetFormat, kVersion);
  SetFile set{.server = reader.Text("server"),
              .client = reader.Text("client"),
              .policy = reader.Text("policy"),
              .schedule = reader.Text("schedule"),
              .backup_id = reader.Text("backup_id"),
              .create_time = reader.Integer("create_time"),
              .size_bytes = reader.Count("size_bytes"),
              .images = TextsFrom(reader.Array("images"), "backup_id", &reader)};
  return IfRight(std::move(set), reader, error);
}
