#include "tools/oxcache/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <sstream>

#include "tools/oxcache/batch.h"
#include "tools/oxcache/bulk_commands.h"
#include "tools/oxcache/freeze.h"
#include "tools/oxcache/reports.h"
#include <oxfilecache/format.h>

namespace ox::tools {
namespace {

using session::Durability;

constexpr char kFooter[] =
    "Exit status: 0 done, 1 not found or refused, 2 wrong usage, 3 input or output error.";

const std::map<std::string, Durability> kDurabilities = {
    {"none", Durability::kNone}, {"process", Durability::kProcess}, {"power", Durability::kPower}};

// An empty name mostly comes from a variable that is not set. With --dir it would mean the default,
// the user's own cache.
CLI::Validator NotEmpty() {
  return CLI::Validator(
      [](const std::string& text) { return text.empty() ? "the name is empty" : ""; }, "");
}

// Without this check 010 would be read as an octal number.
CLI::Validator Decimal() {
  return CLI::Validator(
      [](const std::string& text) {
        const bool isDecimal = text == "0" || (!text.empty() && text[0] >= '1' && text[0] <= '9');
        return isDecimal ? "" : "a decimal number without leading zeros is needed";
      },
      "");
}

void AddGlobalOptions(CLI::App& app, GlobalOptions* options) {
  app.add_option("--dir", options->directory,
                 "Directory of file-cache.conf (default: oxcache in the user's cache directory)")
      ->check(NotEmpty())
      ->type_name("DIR");
  app.add_option("--module", options->modulePath,
                 "The module (default: beside the tool, or the installed one)")
      ->check(NotEmpty())
      ->type_name("FILE");
  app.add_option_function<std::string>(
         "--durability",
         [options](const std::string& name) { options->durability = kDurabilities.at(name); },
         "What a finished store survives: nothing (none), a killed process, or a power cut too")
      ->check(CLI::IsMember(kDurabilities))
      ->type_name("");
  app.add_flag("--force", options->force,
               "init: overwrite; other commands: open the cache even if that deletes all entries");
  app.add_option_function<std::uint32_t>(
         "--wait",
         [options](const std::uint32_t& seconds) { options->wait = std::chrono::seconds(seconds); },
         "How long to wait for another process that has the cache (default: not at all)")
      ->check(Decimal())
      ->type_name("SECONDS");
}

CLI::Option* AddSize(CLI::App& app, const char* name, std::optional<std::uint64_t>* size,
                     const char* help) {
  return app
      .add_option_function<std::uint64_t>(
          name, [size](const std::uint64_t& bytes) { *size = bytes; }, help)
      ->transform(CLI::AsSizeValue(false))
      ->transform(Decimal())
      ->type_name("SIZE");
}

void AddInit(CLI::App& app, InitOptions* options) {
  CLI::App* init = app.add_subcommand("init", "Write a commented file-cache.conf");
  AddSize(*init, "--max-size", &options->maxSize, "All entries together, as in 64M");
  init->add_option_function<std::uint64_t>(
          "--max-entries", [options](const std::uint64_t& number) { options->maxEntries = number; },
          "Number of entries")
      ->check(Decimal())
      ->type_name("N");
  AddSize(*init, "--max-entry-size", &options->maxEntrySize, "One entry with its metadata");
  init->add_option("--directory", options->directory, "Where the entries go")
      ->check(NotEmpty())
      ->type_name("DIR");
}

CLI::Option* AddUrl(CLI::App& app, std::string* url) {
  return app.add_option("url", *url, "URL of the entry")->required()->type_name("");
}

CLI::Validator NotStandardInput(const char* why) {
  return CLI::Validator(
      [why](const std::string& file) {
        return file == "-" ? "a file is needed: " + std::string(why) : "";
      },
      "");
}

CLI::Option* AddPut(CLI::App& app, PutOptions* options) {
  CLI::App* put = app.add_subcommand("put", "Store a file, or standard input");
  AddUrl(*put, &options->url);
  CLI::Option* file =
      put->add_option("file", options->file, "The content (\"-\": standard input)")->type_name("");
  CLI::Option* text = put->add_option_function<std::string>(
      "--meta", [options](const std::string& metadata) { options->metadata = metadata; },
      "Metadata: 1 to " + std::to_string(format::kTextBytes) + " ASCII characters");
  put->add_option("--meta-file", options->metadataFile, "File with the metadata")
      ->type_name("FILE")
      ->check(NotEmpty())
      ->check(NotStandardInput("standard input is for the content"))
      ->excludes(text);
  return file;
}

void AddGet(CLI::App& app, GetOptions* options) {
  CLI::App* get = app.add_subcommand("get", "Write the content of an entry to standard output");
  AddUrl(*get, &options->url);
  get->add_option("-o,--output", options->output, "File to write instead")
      ->check(NotEmpty())
      ->type_name("FILE");
  get->add_flag("--meta", options->metadata, "The metadata instead of the content");
}

void AddFetchNetwork(CLI::App& fetch, FetchOptions* options) {
  fetch
      .add_option("-H,--header", options->headers, "Header to send, as \"Name: value\"; repeatable")
      ->type_name("LINE")
      ->allow_extra_args(false);
  fetch
      .add_option("--cacert", options->caFile, "Authorities to trust instead of the system's (PEM)")
      ->check(NotEmpty())
      ->type_name("FILE");
  fetch.add_option("--cert", options->certificateFile, "Client certificate (PEM)")
      ->check(NotEmpty())
      ->type_name("FILE");
  fetch.add_option("--key", options->keyFile, "Its private key, when it is in another file")
      ->check(NotEmpty())
      ->type_name("FILE");
  fetch.add_option("--proxy", options->proxy, "Proxy to use, as in http://proxy:3128")
      ->check(NotEmpty())
      ->type_name("URL");
}

// Those that curl has too bear its names.
void AddFetchLimits(CLI::App& fetch, FetchOptions* options) {
  fetch.add_option("--timeout", options->seconds, "Longest time for each URL (default: none)")
      ->check(CLI::Range(0.001, 1e6))
      ->type_name("SECONDS");
  fetch
      .add_option("--connect-timeout", options->connectSeconds,
                  "Longest time until a connection is there, name and handshake included")
      ->check(CLI::Range(0.001, 1e6))
      ->capture_default_str()
      ->type_name("SECONDS");
  fetch
      .add_option("--speed-time", options->slowSeconds,
                  "How long a server may send less than --speed-limit")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str()
      ->type_name("SECONDS");
  fetch.add_option("--speed-limit", options->slowBytes, "Bytes a second; 0: any speed will do")
      ->check(Decimal())
      ->capture_default_str()
      ->type_name("BYTES");
}

void AddFetch(CLI::App& app, FetchOptions* options, bool* json) {
  CLI::App* fetch =
      app.add_subcommand("fetch", "Get URLs through the cache, from the web if needed");
  fetch->add_option("url", options->urls, "http or https")->required()->type_name("");
  fetch
      ->add_option("-o,--output", options->output,
                   "File to write; with several URLs, a directory of files")
      ->check(NotEmpty())
      ->type_name("PATH");
  fetch->add_option("-j,--jobs", options->jobs, "Downloads at a time")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  fetch->add_flag("-q,--quiet", options->quiet, "Neither status lines nor progress");
  CLI::Option* offline =
      fetch->add_flag("--offline", options->offline, "Only from the cache, stale or not");
  fetch->add_flag("--refresh", options->refresh, "Ask the server even for what is fresh")
      ->excludes(offline);
  fetch->add_flag("--stale-if-error", options->staleIfError,
                  "From the cache, however old, when the server fails");
  fetch->add_flag("--json", *json, "Status lines as JSON on standard output");
  AddFetchNetwork(*fetch, options);
  AddFetchLimits(*fetch, options);
}

CLI::App* AddReport(CLI::App& app, const char* name, const char* help, bool* json) {
  CLI::App* report = app.add_subcommand(name, help);
  report->add_flag("--json", *json, "As JSON");
  return report;
}

void AddStatistics(CLI::App& app, Invocation* invocation) {
  CLI::App* stat = AddReport(
      app, "stat", "Show the use of the limits, entries by age, files that belong to no entry",
      &invocation->json);
  stat->add_flag("--metrics", invocation->metrics, "Use and limits as OpenMetrics text")
      ->excludes("--json");
}

void AddTrim(CLI::App& app, session::TrimTarget* target) {
  CLI::App* trim = app.add_subcommand(
      "trim", "Delete what was used longest ago, down to 90 % of the limits or to a target");
  AddSize(*trim, "--to", &target->bytes, "All entries together, as in 8M");
  trim->add_option_function<std::uint64_t>(
          "--to-entries", [target](const std::uint64_t& number) { target->entries = number; },
          "Number of entries")
      ->check(Decimal())
      ->type_name("N");
  trim->add_option_function<std::int64_t>(
          "--older-than",
          [target](const std::int64_t& age) { target->unusedFor = std::chrono::seconds(age); },
          "What was not used for so long, as in 90s, 30m, 12h or 7d")
      ->transform(CLI::AsNumberWithUnit(
          std::map<std::string, std::int64_t>{{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}},
          CLI::AsNumberWithUnit::UNIT_REQUIRED))
      ->transform(Decimal())
      ->type_name("AGE");
}

CLI::Option* AddCommands(CLI::App& app, Invocation* invocation) {
  app.require_subcommand(1);
  CLI::Option* putFile = AddPut(app, &invocation->put);
  AddGet(app, &invocation->get);
  AddUrl(*app.add_subcommand("rm", "Remove an entry"), &invocation->removeUrl);
  AddReport(app, "ls", "List entries: name, size, metadata bytes, age, first line of the metadata",
            &invocation->json);
  AddReport(app, "limits", "Show the limits as the module reads them", &invocation->json);
  AddStatistics(app, invocation);
  AddReport(app, "verify", "Read every entry and show what is wrong", &invocation->json);
  AddTrim(app, &invocation->trim);
  app.add_subcommand("clear", "Delete all entries");
  AddFetch(app, &invocation->fetch, &invocation->json);
  return putFile;
}

std::string UsageMessage(const CLI::App& app, const CLI::ParseError& error) {
  const auto unknown = app.remaining();
  const bool hasCommand = !app.get_subcommands().empty();
  if (!hasCommand && !unknown.empty()) return "no such command or option: " + unknown.front();
  return hasCommand ? error.what() : "a command is needed; --help lists them";
}

// `parse` calls the parser, in one of its forms.
template <typename Parse>
Parsed ParseWith(CLI::App& app, Invocation* invocation, Parse parse) {
  try {
    parse();
  } catch (const CLI::Success& success) {
    std::ostringstream text;
    app.exit(success, text, text);
    return {false, ExitStatus::kDone, text.str()};
  } catch (const CLI::ParseError& error) {
    return {false, ExitStatus::kUsage, UsageMessage(app, error)};
  }
  invocation->command = app.get_subcommands().front()->get_name();
  return {true, ExitStatus::kDone, ""};
}

}  // namespace

Parsed ParseProgram(int argc, char** argv, Invocation* invocation) {
  CLI::App app("Stores, fetches and looks after files in a file cache.", "oxcache");
  app.footer(kFooter);
  app.set_version_flag("--version", OX_VERSION);
  app.fallthrough();
  AddGlobalOptions(app, &invocation->global);
  AddInit(app, &invocation->init);
  AddCommands(app, invocation);
  AddReport(app, "check", "Show what a start would delete, and why", &invocation->json);
  app.add_subcommand("freeze",
                     "Keep the order of use in a file, for an image that changes files' times");
  app.add_subcommand("batch", "Run commands from standard input, one a line, in one session");
  return ParseWith(app, invocation, [&] { app.parse(argc, argv); });
}

Parsed ParseLine(std::vector<std::string> words, Invocation* invocation) {
  CLI::App app("Commands of a batch", "");
  AddCommands(app, invocation)->required()->check(NotStandardInput("standard input is the batch"));
  std::reverse(words.begin(), words.end());
  return ParseWith(app, invocation, [&] { app.parse(std::move(words)); });
}

ExitStatus Run(Context& context, const Invocation& invocation) {
  const std::string& command = invocation.command;
  if (command == "init") return Init(context, invocation.init);
  if (command == "put") return Put(context, invocation.put);
  if (command == "get") return Get(context, invocation.get);
  if (command == "rm") return Remove(context, invocation.removeUrl);
  if (command == "trim") return Trim(context, invocation.trim);
  if (command == "clear") return Clear(context);
  if (command == "freeze") return Freeze(context);
  if (command == "fetch") return Fetch(context, invocation.fetch, invocation.json);
  if (command == "batch") return Batch(context);
  if (command == "ls") return List(context, invocation.json);
  if (command == "limits") return ShowLimits(context, invocation.json);
  if (command == "stat" && invocation.metrics) return ShowMetrics(context);
  if (command == "stat") return ShowStatistics(context, invocation.json);
  if (command == "check") return Check(context, invocation.json);
  return Verify(context, invocation.json);
}

}  // namespace ox::tools
