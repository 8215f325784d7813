#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "tools/movra-sr/commands/Commands.h"
#include "tools/movra-sr/commands/Interrupt.h"
#include "tools/movra-sr/io/NaturalOrder.h"

extern char** environ;

namespace movra::tool {

namespace {

namespace fs = std::filesystem;

struct BatchOptions {
  std::string bursts;
  std::string output;
  int jobs = 0;
  bool replace = false;
  std::vector<std::string> rest;  ///< for each movra-sr reconstruct
};

/// A burst that is being reconstructed, by this program in a process of its own: what is wrong with one burst ends that
/// process alone.
struct Job {
  std::string burst;
  pid_t process = -1;
  int output = -1;  ///< where its document comes from
  std::string document;
};

[[noreturn]] void failAtSystem(const std::string& what) {
  throw Failure(ExitCode::internalFault, what + ": " + std::strerror(errno));
}

Job start(const std::string& burst, const fs::path& image, const BatchOptions& options, bool replace) {
  std::vector<std::string> words{"movra-sr", "reconstruct", burst, "-o", image.string(), "--json", "--threads", "1"};
  if (replace) {
    words.emplace_back("--force");
  }
  words.insert(words.end(), options.rest.begin(), options.rest.end());
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);

  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    failAtSystem("cannot make a pipe");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);  // its notes are in the document
  Job job{burst, -1, ends[0], {}};
  const int error = posix_spawn(&job.process, "/proc/self/exe", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (error != 0) {
    close(ends[0]);
    errno = error;
    failAtSystem("cannot start a reconstruction");
  }
  return job;
}

/// One line about a burst: what movra-sr reconstruct --json says, or that it did not get so far.
Json recordOf(const Job& job, int status) {
  Json record{{"burst", job.burst}};
  Json document = Json::parse(job.document, nullptr, false);
  if (document.is_object()) {
    record.update(document);
  }
  if (WIFSIGNALED(status)) {
    record["exit_code"] = static_cast<int>(ExitCode::internalFault);
    record["error"] = std::string("ended by signal ") + strsignal(WTERMSIG(status));
  } else {
    record["exit_code"] = WEXITSTATUS(status);
  }
  return record;
}

/// The file with a line per burst that was worked on. Of several lines about a burst the last one counts.
class Records {
 public:
  /// Reads what earlier runs wrote; the beginning of a line that a killed run left is closed.
  explicit Records(const fs::path& file) {
    std::ifstream earlier(file);
    bool whole = true;
    for (std::string line; std::getline(earlier, line);) {
      whole = !earlier.eof();
      const Json record = Json::parse(line, nullptr, false);
      if (whole && record.is_object()) {
        written.insert(record.value("burst", ""));
      }
    }
    descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (descriptor < 0) {
      throw Failure(ExitCode::outputNotWritten, file.string() + ": cannot be opened: " + std::strerror(errno));
    }
    if (!whole) {
      append("\n");
    }
  }
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;
  ~Records() { close(descriptor); }

  bool has(const std::string& burst) const { return written.count(burst) > 0; }

  void add(const Json& record) { append(record.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n'); }

 private:
  void append(const std::string& text) const {
    if (::write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size()) || fsync(descriptor) != 0) {
      throw Failure(ExitCode::outputNotWritten, std::string("the records cannot be written: ") + std::strerror(errno));
    }
  }

  int descriptor = -1;
  std::set<std::string> written;
};

/// Waits until a job says something or ends. Returns the jobs that have ended.
std::vector<std::pair<Job, int>> waitForSome(std::vector<Job>& running) {
  std::vector<pollfd> sources;
  for (const Job& job : running) {
    sources.push_back({job.output, POLLIN, 0});
  }
  poll(sources.data(), sources.size(), 500);
  std::vector<std::pair<Job, int>> ended;
  for (std::size_t i = running.size(); i-- > 0;) {
    if (sources[i].revents == 0) {
      continue;
    }
    char buffer[4096];
    const ssize_t count = read(running[i].output, buffer, sizeof buffer);
    if (count > 0) {
      running[i].document.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      int status = 0;
      while (waitpid(running[i].process, &status, 0) < 0 && errno == EINTR) {
      }
      close(running[i].output);
      ended.emplace_back(std::move(running[i]), status);
      running.erase(running.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
  return ended;
}

/// The folders and multi-page files in the folder, in natural order.
std::vector<fs::path> burstsIn(const std::string& folder) {
  std::error_code error;
  std::vector<fs::path> bursts;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
    const std::string ending = entry.path().extension().string();
    if (entry.is_directory() || ending == ".tif" || ending == ".tiff" || ending == ".npy") {
      bursts.push_back(entry.path());
    }
  }
  if (error) {
    throw Failure(ExitCode::badInput, folder + ": cannot be read: " + error.message());
  }
  if (bursts.empty()) {
    throw Failure(ExitCode::badInput, folder + ": has no bursts: no folders, TIFF or NPY files");
  }
  std::sort(bursts.begin(), bursts.end(),
            [](const fs::path& a, const fs::path& b) { return naturalLess(a.string(), b.string()); });
  return bursts;
}

ExitCode runBatch(const BatchOptions& options, Console& console) {
  const fs::path folder = options.output;
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) {
    throw Failure(ExitCode::outputNotWritten, folder.string() + ": cannot be made: " + error.message());
  }
  if (fs::equivalent(options.bursts, folder, error)) {
    throw Failure(ExitCode::usage, "--output " + options.output + ": is the folder of the bursts; name another one");
  }
  const std::vector<fs::path> bursts = burstsIn(options.bursts);
  Records records(folder / "records.jsonl");
  // What a camera's files know grows from burst to burst.
  const bool grows = std::any_of(options.rest.begin(), options.rest.end(), [](const std::string& word) {
    return word.rfind("--pattern", 0) == 0 || word.rfind("--save-bad-pixels", 0) == 0;
  });
  const auto most = static_cast<std::size_t>(grows ? 1
                                             : options.jobs > 0
                                                 ? options.jobs
                                                 : static_cast<int>(std::max(1U, std::thread::hardware_concurrency())));
  noteInterrupts();

  const bool terminal = isatty(STDERR_FILENO) != 0;
  std::vector<Job> running;
  std::size_t next = 0;
  int done = 0, skipped = 0, failed = 0;
  while (!running.empty() || (next < bursts.size() && !isInterrupted())) {
    while (running.size() < most && next < bursts.size() && !isInterrupted()) {
      const fs::path& burst = bursts[next++];
      const fs::path image = folder / (burst.filename().string() + ".tiff");
      // An image appears when it is whole. One without a record is of a run that was killed between the two.
      const bool exists = fs::exists(image);
      if (!options.replace && exists && records.has(burst.string())) {
        ++skipped;
      } else {
        running.push_back(start(burst.string(), image, options, exists));
      }
    }
    for (const auto& [job, status] : waitForSome(running)) {
      if (isInterrupted() && WIFSIGNALED(status)) {
        continue;  // by the same key; it is not done
      }
      const Json record = recordOf(job, status);
      records.add(record);
      const bool good = record["exit_code"] == 0;
      ++(good ? done : failed);
      if (!good) {
        console.note(job.burst + ": " + record.value("error", record.value("status", "degraded")));
      }
      console.tell((terminal ? "\r" : "") + std::to_string(done + failed + skipped) + " of " +
                   std::to_string(bursts.size()) + " bursts" + (terminal ? "   " : "\n"));
    }
  }
  if (terminal) {
    console.tell("\n");
  }
  console.document["bursts"] = bursts.size();
  console.document["done"] = done;
  console.document["skipped"] = skipped;
  console.document["failed"] = failed;
  console.say(std::to_string(done) + " done, " + std::to_string(skipped) + " were done before, " +
              std::to_string(failed) + " degraded or failed; records: " + (folder / "records.jsonl").string());
  if (isInterrupted()) {
    console.note("interrupted; the same command goes on from here");
  }
  return failed == 0 && !isInterrupted() ? ExitCode::done : ExitCode::degraded;
}

}  // namespace

void addBatch(CLI::App& application, Console& console, Action& chosen) {
  auto options = std::make_shared<BatchOptions>();
  CLI::App* command = application.add_subcommand("batch", "Reconstruct every burst in a folder, on all processors");
  command->add_option("BURSTS", options->bursts, "Folder with a folder, TIFF or NPY file per burst")->required();
  command->add_option("-o,--output", options->output, "Folder of the images and of records.jsonl (required)")
      ->type_name("FOLDER")
      ->required();
  command->add_option("-j,--jobs", options->jobs, "Bursts at a time [one per processor]")->check(CLI::Range(1, 4096));
  command->add_flag("--force", options->replace, "Make images anew that exist");
  command->add_option("OPTIONS", options->rest, "Options for each movra-sr reconstruct, after --");
  addConsoleOptions(*command, console);
  command->footer(
      "Example:\n"
      "  movra-sr batch recordings -o images -- --preset best\n\n"
      "records.jsonl gets a line per burst, as movra-sr reconstruct --json says it. The same command again\n"
      "skips the bursts whose image is there and makes the others.");
  command->callback([=, &console, &chosen] { chosen = [=, &console] { return runBatch(*options, console); }; });
}

}  // namespace movra::tool
