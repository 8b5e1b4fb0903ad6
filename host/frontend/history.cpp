#include "frontend/history.h"

#include "host/directories.h"
#include "host/files.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <readline/history.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace zel::lua {

namespace {

constexpr int maxEntries = 1000;

/// The history file in a directory that exists; empty when there can be none. A link in its place is not followed.
fs::path findFile() {
  const fs::path root = host::userRoot();
  if (root.empty()) return {};
  const mode_t outer = ::umask(S_IRWXG | S_IRWXO);
  std::error_code failed;
  fs::create_directories(root, failed);
  ::umask(outer);
  const fs::path file = root / "history";
  const fs::file_status found = fs::symlink_status(file, failed);
  return fs::is_regular_file(found) || !fs::exists(found) ? file : fs::path();
}

bool hasTimes(const fs::path& file) { return std::ifstream(file).peek() == history_comment_char; }

} // namespace

History::History() : m_file(findFile()) {
  history_comment_char = '#';
  history_write_timestamps = 1; // they separate statements of several lines
  using_history();
  if (m_file.empty() || read_history(m_file.c_str()) != 0) return;
  const bool tooLong = history_length > maxEntries;
  stifle_history(maxEntries);
  if (tooLong || !hasTimes(m_file)) write_history(m_file.c_str());
}

void History::add(const std::string& statement) const {
  if (statement.find_first_not_of(" \t\n") != 0) return;
  const HIST_ENTRY* last = history_get(history_base + history_length - 1);
  if (last != nullptr && statement == last->line) return;
  add_history(statement.c_str());
  if (m_file.empty()) return;
  const host::Descriptor file(
      ::open(m_file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file.valid()) return;
  const std::string entry = history_comment_char + std::to_string(std::time(nullptr)) + '\n' + statement + '\n';
  [[maybe_unused]] const ssize_t written = ::write(file.get(), entry.data(), entry.size());
}

} // namespace zel::lua
