#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include "PLXBackupCommand.h"
#include "PLXCommandLine.h"
#include "PLXConfiguration.h"
#include "PLXDelimitedText.h"
#include "PLXListener.h"
#include "PLXLog.h"
#include "PLXLoginStore.h"
#include "PLXMailCheck.h"
#include "PLXODBC.h"
#include "PLXProcess.h"
#include "PLXQueueCommand.h"
#include "PLXRecordCursor.h"
#include "PLXServer.h"
#include "PLXSite.h"
#include "PLXSiteNames.h"
#include "PLXStateVersion.h"
#include "PLXTraceCommand.h"

// The command line. What goes wrong is told in sentences on standard error and in the exit code.

namespace fs = std::filesystem;

namespace {

constexpr char kFooter[] =
    "Start with: plxserver check, then plxserver serve.\n"
    "The administration at /plx-admin/ opens with a login: plxserver user set NAME.\n"
    "plxserver COMMAND --help explains a command.";

std::string const kAddressRemedy =
    " Free that address, or choose another with --listen ADDRESS:PORT or the key \"listen\".";

struct Arguments {
  std::string file;
  std::vector<std::string> overrides;
  std::string listen;
  bool trace = false;
  std::string page, site;
  std::vector<std::string> pageArguments;
  std::string user, region;
  std::string database, exchangeFile, delimiter;
  PLXQueueRequest queue;
  std::string testAddress;
  PLXBackupRequest backup;
  PLXTraceRequest tracing;
};

// ---- Configuration
// -------------------------------------------------------------------------------------------

std::vector<std::string> AllOverrides(Arguments const& arguments_i) {
  std::vector<std::string> overrides = arguments_i.overrides;
  if (!arguments_i.listen.empty()) overrides.push_back("listen=" + arguments_i.listen);
  if (arguments_i.trace) overrides.push_back("trace=yes");
  return overrides;
}

// Reads the configuration that the arguments name. False, with every problem on standard error, when it
// cannot be used.
bool ReadConfiguration(Arguments& arguments_io, PLXConfiguration& configuration_o) {
  if (arguments_io.file.empty()) {
    std::error_code error;
    for (char const* candidate : {"plxserver.conf", "/etc/plxserver/plxserver.conf"}) {
      if (!fs::exists(candidate, error)) continue;
      arguments_io.file = candidate;
      break;
    }
  }
  if (arguments_io.file.empty() && arguments_io.overrides.empty()) {
    PLXFail(
        kExitConfiguration,
        "there is no configuration: neither plxserver.conf in this folder nor /etc/plxserver/plxserver.conf. "
        "Name one with --config FILE.");
    return false;
  }
  std::vector<PLXConfigurationProblem> problems;
  configuration_o = LoadConfiguration(arguments_io.file, AllOverrides(arguments_io), problems);
  for (PLXConfigurationProblem const& problem : problems) std::cerr << problem.Text() << std::endl;
  return problems.empty();
}

// How to call this program again with the same configuration.
std::string CommandFor(Arguments const& arguments_i, std::string const& command_i) {
  std::string command = "plxserver " + command_i;
  if (!arguments_i.file.empty() && arguments_i.file != "plxserver.conf")
    command += " --config " + arguments_i.file;
  return command;
}

// ---- serve
// ---------------------------------------------------------------------------------------------------

std::string Address(std::string host_i, std::uint16_t port_i) {
  if (host_i.find(':') != std::string::npos && !host_i.starts_with('[')) host_i = "[" + host_i + "]";
  return "http://" + host_i + (port_i == 80 ? "" : ":" + std::to_string(port_i)) + "/";
}

void SayReady(PLXServer& server_io, Arguments const& arguments_i, PLXConfiguration const& configuration_i,
              std::uint16_t port_i) {
  std::string const first = Address(configuration_i.sites.front().hosts.front(), port_i);
  for (PLXSiteConfiguration const& site : configuration_i.sites) {
    std::cout << "PLX Server: " << Address(site.hosts.front(), port_i) << " (" << site.name << ")\n";
  }
  if (server_io.HasServerLogin()) {
    std::cout << "Administration: " << first << "plx-admin/\n";
  } else {
    std::cout << "Administration: closed until there is a login. Make one with: "
              << CommandFor(arguments_i, "user set NAME") << "\n";
  }
  std::cout << std::flush;
}

int Serve(Arguments& arguments_io) {
  PLXConfiguration configuration;
  if (!ReadConfiguration(arguments_io, configuration)) return kExitConfiguration;
  if (configuration.coreDumps) AllowCoreDumps();
  std::unique_ptr<PLXServer> server;
  try {
    server = std::make_unique<PLXServer>(configuration, AllOverrides(arguments_io));
  } catch (PLXUnavailable const& error) {
    return PLXFail(kExitUnavailable, error.what());
  } catch (PLXStateVersionError const& error) {
    return PLXFail(kExitConfiguration, error.what());
  } catch (std::exception const& error) {
    return PLXFail(kExitCannotCreate, error.what());
  }
  std::vector<std::string> problems;
  if (!server->LoadModules(problems)) {
    for (std::string const& problem : problems) PLXFail(kExitUnavailable, problem);
    return kExitUnavailable;
  }
  for (std::string const& warning : InstallationWarnings(configuration)) PLXLog::Warning(warning);
  bool isReady = false;
  try {
    bool const isOver = server->Serve([&](std::uint16_t port) {
      isReady = true;
      SayReady(*server, arguments_io, configuration, port);
    });
    if (!isOver) {
      // Pages still use the server and the modules, so neither may be taken apart under them.
      PLXLog::Close();
      std::_Exit(kExitGood);
    }
  } catch (std::exception const& error) {
    if (isReady) return PLXFail(kExitSoftware, error.what());
    return PLXFail(kExitUnavailable, error.what() + kAddressRemedy);
  }
  return kExitGood;
}

// ---- render
// --------------------------------------------------------------------------------------------------

int ReadPageArguments(std::vector<std::string> const& texts_i, std::vector<PLXNameValue>& arguments_o) {
  for (std::string const& text : texts_i) {
    auto const equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
      return PLXFail(kExitUsage, "\"" + text + "\" is no name=value pair.");
    arguments_o.push_back({text.substr(0, equals), text.substr(equals + 1)});
  }
  return kExitGood;
}

// A server that shows one page: with its modules, beside one that may run.
int MakeVisitor(Arguments& arguments_io, std::unique_ptr<PLXServer>& server_o) {
  PLXConfiguration configuration;
  if (!ReadConfiguration(arguments_io, configuration)) return kExitConfiguration;
  try {
    server_o =
        std::make_unique<PLXServer>(configuration, AllOverrides(arguments_io), PLXServer::Use::kRender);
  } catch (PLXUnavailable const& error) {
    return PLXFail(kExitUnavailable, error.what());
  } catch (PLXStateVersionError const& error) {
    return PLXFail(kExitConfiguration, error.what());
  } catch (std::exception const& error) {
    return PLXFail(kExitCannotCreate, error.what());
  }
  std::vector<std::string> problems;
  if (server_o->LoadModules(problems)) return kExitGood;
  for (std::string const& problem : problems) PLXFail(kExitUnavailable, problem);
  return kExitUnavailable;
}

int JudgePage(Arguments const& arguments_i, PLXResponse const& response_i) {
  if (response_i.status < 400) return kExitGood;
  return PLXFail(kExitUnavailable,
                 arguments_i.page + ": the answer has the status " + std::to_string(response_i.status) + ".");
}

int Render(Arguments& arguments_io) {
  std::vector<PLXNameValue> pageArguments;
  std::unique_ptr<PLXServer> server;
  int code = ReadPageArguments(arguments_io.pageArguments, pageArguments);
  if (code == kExitGood) code = MakeVisitor(arguments_io, server);
  if (code != kExitGood) return code;
  PLXResponse const response = server->Render(arguments_io.page, pageArguments, arguments_io.site);
  std::cout << response.body << std::flush;
  if (!std::cout) return PLXFail(kExitInputOutput, "the page cannot be written to standard output.");
  return JudgePage(arguments_io, response);
}

// ---- trace
// ---------------------------------------------------------------------------------------------------

int Trace(Arguments& arguments_io) {
  std::vector<PLXNameValue> pageArguments;
  std::unique_ptr<PLXServer> server;
  int code = ReadPageArguments(arguments_io.pageArguments, pageArguments);
  if (code == kExitGood) code = MakeVisitor(arguments_io, server);
  if (code != kExitGood) return code;
  PLXResponse const response =
      PLXTracePage(*server, arguments_io.tracing, arguments_io.page, pageArguments, arguments_io.site);
  if (!PLXKeepTracedPage(arguments_io.tracing, response)) {
    return PLXFail(kExitCannotCreate, arguments_io.tracing.output.string() + ": the file cannot be written.");
  }
  return JudgePage(arguments_io, response);
}

// ---- check
// ---------------------------------------------------------------------------------------------------

// A folder of its own for modules that are only tried, so that a check leaves nothing in the server's.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::error_code error;
    fs::path const parent = fs::temp_directory_path(error);
    if (error) throw std::runtime_error("TMPDIR names no folder. Name one, or unset it.");
    std::string name = (parent / "plxserver-check-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error(name + ": the folder cannot be made.");
    myPath = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(myPath, ignored);
  }
  fs::path const& Path() const { return myPath; }

 private:
  fs::path myPath;
};

// Whether the state folder could be made and written, told from the nearest folder that exists.
bool IsStateWritable(fs::path const& state_i) {
  std::error_code error;
  fs::path folder = fs::absolute(state_i, error);
  while (!fs::exists(folder, error) && folder.has_relative_path()) folder = folder.parent_path();
  return fs::is_directory(folder, error) && ::access(folder.c_str(), W_OK | X_OK) == 0;
}

// The mail servers that the regions' preferences name, and a message over each when that is asked for.
int CheckMail(Arguments const& arguments_i, PLXConfiguration const& configuration_i) {
  std::error_code none;
  std::vector<PLXNamedMailServer> servers;
  if (fs::exists(configuration_i.state, none)) {
    if (!BecomeOwnerOf(configuration_i.state)) {
      std::cout << "The mail servers were not tried: the state folder is another user's.\n";
      return kExitGood;
    }
    servers = PLXNamedMailServers(configuration_i);
  }
  int code = kExitGood;
  for (PLXNamedMailServer const& row : servers) {
    std::string const problem = PLXTryMailServer(row.server);
    if (!problem.empty()) {
      code = PLXFail(kExitUnavailable, "region " + row.region + ": " + problem);
    } else {
      std::cout << "The mail server " << row.server << " of region " << row.region << " answers.\n";
    }
  }
  if (arguments_i.testAddress.empty()) return code;
  if (servers.empty()) {
    return PLXFail(kExitUsage,
                   "no region's preferences name a mail server, so there is none to test. Pages that name "
                   "theirs are tested by opening them.");
  }
  return code != kExitGood ? code : PLXSendTestMail(configuration_i, servers, arguments_i.testAddress);
}

int CheckFiles(PLXConfiguration const& configuration_i) {
  int code = kExitGood;
  fs::path const state = configuration_i.state;
  if (!IsStateWritable(state)) {
    code = PLXFail(kExitCannotCreate,
                   state.string() +
                       ": the state folder cannot be written by this user. Give it the right to, or "
                       "name another folder with the key \"state\".");
  }
  std::string const shared = SharedFolderProblem(configuration_i);
  if (!shared.empty()) code = PLXFail(kExitUnavailable, shared);
  if (!configuration_i.recordsSource.empty()) {
    try {
      PLXODBC const connection(configuration_i.recordsSource, configuration_i.recordsUser,
                               configuration_i.recordsPassword);
      std::cout << "The data source of records and preferences answers.\n";
    } catch (PLXSQLError const& error) {
      code = PLXFail(kExitUnavailable, std::string("records-source: ") + error.what());
    }
  }
  auto const running = StateUser(state);
  TemporaryFolder const temporary;
  PLXConfiguration trial = configuration_i;
  trial.state = temporary.Path() / "state";
  trial.shared.clear();
  trial.recordsSource.clear();
  PLXServer server(trial, {}, PLXServer::Use::kRender);
  std::vector<std::string> problems;
  if (!server.LoadModules(problems)) {
    for (std::string const& problem : problems) code = PLXFail(kExitUnavailable, problem);
  }
  if (running) {
    std::cout << "A server runs with this state folder (process " << *running
              << "); its address was not tried.\n";
  } else {
    try {
      PLXListener const listener(trial.listenAddress, trial.listenPort, trial.limits, trial.proxies,
                                 temporary.Path(), server);
    } catch (std::exception const& error) {
      code = PLXFail(kExitUnavailable, error.what() + kAddressRemedy);
    }
  }
  auto warnings = InstallationWarnings(configuration_i);
  for (std::string& warning : PLXSiteNameWarnings(configuration_i)) warnings.push_back(std::move(warning));
  for (std::string const& warning : warnings) std::cerr << "plxserver: warning: " << warning << std::endl;
  return code;
}

int Check(Arguments& arguments_io) {
  PLXConfiguration configuration;
  if (!ReadConfiguration(arguments_io, configuration)) return kExitConfiguration;
  int code = CheckFiles(configuration);
  if (code == kExitGood) code = CheckMail(arguments_io, configuration);
  if (code == kExitGood) {
    std::cout << "The configuration is good: sites " << configuration.sites.size() << ", modules "
              << configuration.modules.size() << ".\n";
  }
  return code;
}

// ---- user
// ----------------------------------------------------------------------------------------------------

// Turns the terminal's echo off for as long as it lives.
class SilentTerminal {
 public:
  SilentTerminal() {
    myIsTerminal = ::tcgetattr(STDIN_FILENO, &mySettings) == 0;
    if (!myIsTerminal) return;
    termios silent = mySettings;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
  }
  ~SilentTerminal() {
    if (myIsTerminal) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &mySettings);
  }

 private:
  termios mySettings{};
  bool myIsTerminal = false;
};

bool ReadLine(std::string& line_o) {
  if (!std::getline(std::cin, line_o)) return false;
  if (line_o.ends_with('\r')) line_o.pop_back();
  return true;
}

bool ReadPassword(std::string& password_o, std::string& problem_o) {
  if (!::isatty(STDIN_FILENO)) {
    if (ReadLine(password_o)) return true;
    problem_o = "standard input holds no password. Give it as one line.";
    return false;
  }
  SilentTerminal const silent;
  std::string again;
  std::cerr << "Password: " << std::flush;
  bool const first = ReadLine(password_o);
  std::cerr << "\nThe same again: " << std::flush;
  bool const second = first && ReadLine(again);
  std::cerr << std::endl;
  if (second && again == password_o) return true;
  problem_o = second ? "the two passwords differ; nothing was changed."
                     : "no password was given; nothing was changed.";
  return false;
}

// A file that root writes for a server of another user must be that user's, or the server cannot read it.
void GiveToOwnerOf(fs::path const& file_i, fs::path const& folder_i) {
  struct stat status {};
  if (::geteuid() != 0 || ::stat(folder_i.c_str(), &status) != 0) return;
  for (fs::path const& path : {file_i.parent_path(), file_i.parent_path() / ".lock", file_i}) {
    if (::access(path.c_str(), F_OK) == 0 && ::lchown(path.c_str(), status.st_uid, status.st_gid) != 0) {
      PLXFail(kExitInputOutput,
              path.string() + ": the file cannot be given to the owner of " + folder_i.string() + ".");
    }
  }
}

// The file with the logins that the arguments mean.
bool FindLogins(Arguments& arguments_io, PLXConfiguration& configuration_o, fs::path& file_o, int& code_o) {
  code_o = kExitConfiguration;
  if (!ReadConfiguration(arguments_io, configuration_o)) return false;
  file_o = ServerLoginsFile(configuration_o);
  if (arguments_io.region.empty()) return true;
  PLXSites const sites(configuration_o);
  PLXRegion const* const region = sites.FindRegion(arguments_io.region);
  if (region) {
    file_o = region->LoginsFile();
    return true;
  }
  std::string known;
  for (auto const& site : sites.All()) {
    for (auto const& candidate : site->Regions()) known += (known.empty() ? "" : ", ") + candidate->Key();
  }
  code_o =
      PLXFail(kExitUsage, "there is no region \"" + arguments_io.region + "\". There are: " + known + ".");
  return false;
}

int ListUsers(Arguments& arguments_io) {
  PLXConfiguration configuration;
  fs::path file;
  int code = kExitGood;
  if (!FindLogins(arguments_io, configuration, file, code)) return code;
  auto const users = PLXLoginStore(file).Users();
  for (std::string const& user : users) std::cout << user << "\n";
  if (users.empty())
    std::cerr << "There are no logins yet. Make one with: " << CommandFor(arguments_io, "user set NAME")
              << std::endl;
  return kExitGood;
}

int ChangeUser(Arguments& arguments_io, bool remove_i) {
  PLXConfiguration configuration;
  fs::path file;
  int code = kExitGood;
  if (!FindLogins(arguments_io, configuration, file, code)) return code;
  std::string password, problem;
  if (!remove_i && !ReadPassword(password, problem)) return PLXFail(kExitUsage, problem);
  try {
    PrepareFolders(configuration);
    fs::create_directories(file.parent_path());
  } catch (PLXUnavailable const& error) {
    return PLXFail(kExitUnavailable, error.what());
  } catch (std::exception const& error) {
    return PLXFail(kExitCannotCreate, error.what());
  }
  PLXLoginStore store(file);
  bool const good = remove_i ? store.Remove(arguments_io.user, problem)
                             : store.SetPassword(arguments_io.user, password, problem);
  if (!good)
    return PLXFail(::access(file.parent_path().c_str(), W_OK) == 0 ? kExitUsage : kExitInputOutput, problem);
  GiveToOwnerOf(file, configuration.SharedFolder());
  return kExitGood;
}

// ---- records
// -------------------------------------------------------------------------------------------------

bool HoldsWholeNumber(std::string const& text_i) {
  std::int64_t number;
  return PLXRecordInteger(text_i, number) && text_i.find('.') == text_i.npos;
}
bool HoldsNumber(std::string const& text_i) {
  double number;
  return PLXRecordDouble(text_i, number);
}

// Gives a new database the fields of a file's header line, each of the narrowest type that its values have.
void AddFields(PLXRecordCursor& cursor_io, fs::path const& file_i) {
  std::ifstream stream(file_i, std::ios::binary);
  PLXDelimitedReader reader(stream, PLXFindDelimiter(stream));
  std::vector<std::string> names, values;
  if (!reader.ReadRecord(names)) return;
  struct Seen {
    bool isWhole = true, isNumber = true, isShort = true, isEmpty = true;
  };
  std::vector<Seen> seen(names.size());
  while (reader.ReadRecord(values)) {
    for (std::size_t index = 0; index < std::min(values.size(), names.size()); ++index) {
      if (values[index].empty()) continue;
      seen[index].isEmpty = false;
      seen[index].isWhole = seen[index].isWhole && HoldsWholeNumber(values[index]);
      seen[index].isNumber = seen[index].isNumber && HoldsNumber(values[index]);
      seen[index].isShort = seen[index].isShort && values[index].size() <= 255;
    }
  }
  std::vector<PLXRecordCatalogue::NewField> fields;
  for (std::size_t index = 0; index < names.size(); ++index) {
    if (cursor_io.HasField(names[index])) continue;  // the identifier
    Seen const& column = seen[index];
    std::uint32_t word = column.isShort ? 0x600FF : 0x70000;
    if (column.isNumber && !column.isEmpty) word = column.isWhole ? 0x20000 : 0x40000;
    fields.emplace_back(names[index], word);
  }
  cursor_io.AddFields(fields);
}

int ListRecords(PLXRecordEngine& engine_i) {
  for (std::string const& name : engine_i.Store()->Names()) {
    PLXRecordCursor cursor(engine_i.Store(), name, PLXRecordAccess::kShared, nullptr);
    std::cout << name << "\t" << cursor.RecordCount() << "\n";
  }
  return kExitGood;
}

int Exchange(PLXRecordEngine& engine_i, Arguments const& arguments_i, bool isImport_i) {
  fs::path const file = fs::absolute(arguments_i.exchangeFile);
  auto const whenMissing =
      isImport_i ? PLXRecordCursor::WhenMissing::kCreate : PLXRecordCursor::WhenMissing::kFail;
  if (isImport_i && ::access(file.c_str(), R_OK) != 0)
    return PLXFail(kExitInputOutput, file.string() + " cannot be read.");
  PLXRecordCursor cursor(engine_i.Store(), arguments_i.database, PLXRecordAccess::kShared, nullptr,
                         whenMissing);
  if (isImport_i && cursor.Fields().empty()) AddFields(cursor, file);
  std::string const options = arguments_i.delimiter.empty() ? "" : "delimiter=" + arguments_i.delimiter;
  std::cerr << (isImport_i ? cursor.Import(file) : cursor.Export(file, options)) << " records" << std::endl;
  return kExitGood;
}

int Records(Arguments& arguments_io, bool isImport_i, bool isExport_i) {
  PLXConfiguration configuration;
  if (!ReadConfiguration(arguments_io, configuration)) return kExitConfiguration;
  try {
    PrepareFolders(configuration);
  } catch (PLXUnavailable const& error) {
    return PLXFail(kExitUnavailable, error.what());
  } catch (std::exception const& error) {
    return PLXFail(kExitCannotCreate, error.what());
  }
  PLXRecordEngine engine({configuration.state, configuration.recordsSource, configuration.recordsUser,
                          configuration.recordsPassword});
  int code = kExitGood;
  try {
    code = isImport_i || isExport_i ? Exchange(engine, arguments_io, isImport_i) : ListRecords(engine);
  } catch (PLXRecordError const& error) {
    code =
        PLXFail(error.GetKind() == PLXRecordError::Kind::kNotReachable ? kExitUnavailable : kExitInputOutput,
                error.what());
  }
  for (char const* const name :
       {"records.sqlite", "records.sqlite-wal", "records.sqlite-shm", "records.locks"}) {
    if (fs::exists(configuration.state / name))
      GiveToOwnerOf(configuration.state / name, configuration.state);
  }
  return code;
}

// ---- queue
// ---------------------------------------------------------------------------------------------------

// Works as the owner of the state folder, so that no file of it becomes root's.
int Queue(Arguments& arguments_io,
          std::function<int(PLXConfiguration const&, PLXQueueRequest const&)> const& command_i) {
  PLXConfiguration configuration;
  if (!ReadConfiguration(arguments_io, configuration)) return kExitConfiguration;
  if (!fs::is_directory(configuration.state)) {
    return PLXFail(kExitUnavailable,
                   configuration.state.string() + ": there is no state folder yet, so there is no mail.");
  }
  if (!BecomeOwnerOf(configuration.state)) {
    return PLXFail(kExitUnavailable,
                   configuration.state.string() +
                       ": the state folder is another user's. Call this command as that user or as root.");
  }
  try {
    return command_i(configuration, arguments_io.queue);
  } catch (PLXUnavailable const& error) {
    return PLXFail(kExitUnavailable, error.what());
  } catch (PLXRecordError const& error) {
    return PLXFail(
        error.GetKind() == PLXRecordError::Kind::kNotReachable ? kExitUnavailable : kExitInputOutput,
        error.what());
  }
}

// ---- backup and restore
// ---------------------------------------------------------------------------------------------------

int BackupOrRestore(Arguments& arguments_io, bool isRestore_i) {
  PLXConfiguration configuration;
  if (!ReadConfiguration(arguments_io, configuration)) return kExitConfiguration;
  return isRestore_i ? PLXRestore(configuration, arguments_io.backup)
                     : PLXBackup(configuration, arguments_io.backup);
}

// ---- The command line
// ----------------------------------------------------------------------------------------

void AddCommonOptions(CLI::App& command_io, Arguments& arguments_io) {
  command_io
      .add_option("--config", arguments_io.file,
                  "Configuration file (plxserver.conf here, else /etc/plxserver/plxserver.conf)")
      ->option_text("FILE");
  command_io.add_option("--set", arguments_io.overrides, "Sets a key in place of the file; may be repeated")
      ->option_text("KEY=VALUE")
      ->allow_extra_args(false);
}

struct Commands {
  CLI::App *serve, *render, *trace, *check, *backup, *restore, *userSet, *userRemove, *userList;
  CLI::App *recordsList, *recordsImport, *recordsExport;
  CLI::App *queueList, *queueShow, *queueResend, *queueDelete, *queueExport;
};

Commands Describe(CLI::App& app_io, Arguments& arguments_io) {
  Commands commands{};
  app_io.set_version_flag("--version", "plxserver " PLX_SERVER_VERSION);
  app_io.require_subcommand(1);
  app_io.footer(kFooter);

  commands.serve =
      app_io.add_subcommand("serve",
                            "Serves the configured sites until it is told to stop (TERM, INT); HUP "
                            "reads the configuration again");
  AddCommonOptions(*commands.serve, arguments_io);
  commands.serve
      ->add_option("--listen", arguments_io.listen, "Address to listen on, in place of the configuration's")
      ->option_text("ADDRESS:PORT");
  commands.serve->add_flag("--trace", arguments_io.trace,
                           "Writes every event and call of a module to the trace log");
  commands.serve->footer("Configuration keys:\n" + ConfigurationReference());

  commands.render =
      app_io.add_subcommand("render", "Runs one page and prints it, without a browser and a login");
  commands.trace = app_io.add_subcommand(
      "trace",
      "Runs one page and prints what its tags ask of the server, with arguments, results and microseconds; "
      "passwords are left out");
  for (CLI::App* const command : {commands.render, commands.trace}) {
    AddCommonOptions(*command, arguments_io);
    command->add_option("PAGE", arguments_io.page, "The page's path on its site")->required();
    command->add_option("ARGUMENTS", arguments_io.pageArguments, "Arguments as an address would give them")
        ->option_text("[NAME=VALUE ...]");
    command->add_option("--site", arguments_io.site, "The site, when it is not the first one")
        ->option_text("NAME");
  }
  commands.trace
      ->add_option("--output", arguments_io.tracing.output, "Writes the page to a file; else it is not shown")
      ->option_text("FILE");
  commands.trace->add_flag("--json", arguments_io.tracing.isJSON, "As JSON, an object a line, for programs");

  commands.check =
      app_io.add_subcommand("check",
                            "Says what is wrong with the configuration, and where, and whether the mail "
                            "servers of the preferences answer; starts nothing");
  AddCommonOptions(*commands.check, arguments_io);
  commands.check
      ->add_option("--send-test", arguments_io.testAddress,
                   "Sends a message to this address over each of them")
      ->option_text("ADDRESS");

  commands.backup = app_io.add_subcommand("backup",
                                          "Copies the state, and what modules keep in the folders of the "
                                          "sites, to a new folder; the server may run");
  commands.backup->add_option("TARGET", arguments_io.backup.folder, "The folder, which this makes")
      ->required();
  commands.restore = app_io.add_subcommand(
      "restore",
      "Puts a backup in the place of the state, which is kept under another name; no server may run");
  commands.restore->add_option("SOURCE", arguments_io.backup.folder, "The folder that \"backup\" made")
      ->required();
  commands.restore->add_flag("--state-only", arguments_io.backup.isStateOnly,
                             "Leaves web mail and attachments in the folders of the sites as they are");
  for (CLI::App* const command : {commands.backup, commands.restore}) {
    command->add_flag("--json", arguments_io.backup.isJSON, "As JSON, for programs");
    AddCommonOptions(*command, arguments_io);
  }

  CLI::App* const user = app_io.add_subcommand("user", "Logins of the administration, or of a region");
  user->require_subcommand(1);
  commands.userSet =
      user->add_subcommand("set",
                           "Makes a login or changes its password, which is asked for, or read from "
                           "standard input when that is no terminal");
  commands.userRemove = user->add_subcommand("remove", "Removes a login");
  commands.userList = user->add_subcommand("list", "Lists the names");
  for (CLI::App* const command : {commands.userSet, commands.userRemove, commands.userList}) {
    if (command != commands.userList)
      command->add_option("NAME", arguments_io.user, "The login's name")->required();
    command->add_option("--region", arguments_io.region, "A region's logins in place of the administration's")
        ->option_text("SITE/REGION");
    AddCommonOptions(*command, arguments_io);
  }
  CLI::App* const records = app_io.add_subcommand("records", "The record databases");
  records->require_subcommand(1);
  commands.recordsList =
      records->add_subcommand("list", "Lists the databases and how many records they have");
  commands.recordsImport = records->add_subcommand(
      "import",
      "Adds the records of a file of comma-separated values, all or none; makes the database and its "
      "fields when it has none");
  commands.recordsExport = records->add_subcommand("export", "Writes all records to such a file");
  commands.recordsExport
      ->add_option("--delimiter", arguments_io.delimiter, "A character, or \"tab\", in place of the comma")
      ->option_text("CHARACTER");
  for (CLI::App* const command : {commands.recordsList, commands.recordsImport, commands.recordsExport}) {
    if (command != commands.recordsList) {
      command->add_option("DATABASE", arguments_io.database, "The database's name")->required();
      command->add_option("FILE", arguments_io.exchangeFile, "The file; its first line names the fields")
          ->required();
    }
    AddCommonOptions(*command, arguments_io);
  }
  CLI::App* const queue = app_io.add_subcommand("queue", "Mail that could not be sent");
  queue->require_subcommand(1);
  commands.queueList = queue->add_subcommand("list", "Lists the messages, and why each was not taken");
  commands.queueShow = queue->add_subcommand("show", "Prints messages");
  commands.queueResend = queue->add_subcommand("resend", "Sends messages again and says what came of it");
  commands.queueDelete = queue->add_subcommand("delete", "Deletes messages; they cannot be brought back");
  commands.queueExport = queue->add_subcommand("export", "Writes each message to a file NUMBER.eml");
  for (CLI::App* const command : {commands.queueList, commands.queueShow}) {
    command->add_flag("--json", arguments_io.queue.isJSON, "As JSON, for programs");
  }
  commands.queueExport->add_option("--to", arguments_io.queue.folder, "The folder for the files (this one)")
      ->option_text("FOLDER");
  for (CLI::App* const command : {commands.queueList, commands.queueShow, commands.queueResend,
                                  commands.queueDelete, commands.queueExport}) {
    if (command != commands.queueList) {
      command->add_option("MESSAGES", arguments_io.queue.numbers, "Their numbers, as the list shows them")
          ->option_text("[NUMBER ...]");
      command->add_flag("--all", arguments_io.queue.isAll, "Every message there is");
    }
    AddCommonOptions(*command, arguments_io);
  }
  return commands;
}

int Run(Commands const& commands_i, Arguments& arguments_io) {
  if (commands_i.serve->parsed()) return Serve(arguments_io);
  if (commands_i.render->parsed()) return Render(arguments_io);
  if (commands_i.trace->parsed()) return Trace(arguments_io);
  if (commands_i.backup->parsed()) return BackupOrRestore(arguments_io, false);
  if (commands_i.restore->parsed()) return BackupOrRestore(arguments_io, true);
  if (commands_i.check->parsed()) return Check(arguments_io);
  if (commands_i.userSet->parsed()) return ChangeUser(arguments_io, false);
  if (commands_i.userRemove->parsed()) return ChangeUser(arguments_io, true);
  if (commands_i.userList->parsed()) return ListUsers(arguments_io);
  if (commands_i.queueList->parsed()) return Queue(arguments_io, PLXQueueList);
  if (commands_i.queueShow->parsed()) return Queue(arguments_io, PLXQueueShow);
  if (commands_i.queueResend->parsed()) return Queue(arguments_io, PLXQueueResend);
  if (commands_i.queueDelete->parsed()) return Queue(arguments_io, PLXQueueDelete);
  if (commands_i.queueExport->parsed()) return Queue(arguments_io, PLXQueueExport);
  return Records(arguments_io, commands_i.recordsImport->parsed(), commands_i.recordsExport->parsed());
}

}  // namespace

int main(int argc, char** argv) {
  KeepProcessToItself();
  // A client that has left shows as an error of the write, not as a signal.
  std::signal(SIGPIPE, SIG_IGN);
  CLI::App app{"PLX Server: serves pages whose tags are run by modules.", "plxserver"};
  Arguments arguments;
  Commands const commands = Describe(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    return app.exit(error) == 0 ? kExitGood : kExitUsage;
  }
  try {
    return Run(commands, arguments);
  } catch (std::exception const& error) {
    return PLXFail(kExitSoftware, error.what());
  }
}
