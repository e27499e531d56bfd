// The copy worker of the simulated storage service (see sim/transfers.h).
#include "sim/transfers.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "sim/files.h"
#include "sim/sim.h"

namespace velsim {
namespace {

constexpr size_t kChunk = size_t{64} * 1024;
// Finished transfers the model remembers, so that late polls still get an answer.
constexpr size_t kFinishedKept = 32;
// The longest a storage operation waits for the worker to catch up: a copy slower
// than the clock allows (a slow disk) then shows what it has done so far, and the
// next operation waits again.
constexpr auto kCatchUpWait = std::chrono::seconds(2);

// One folder to make or one file to copy, in the order the copy does them.
struct Piece {
  std::string from;
  std::string to;
  uint64_t size;
  bool folder;
};

enum class State { kCopying, kDone, kFailed };

const char* state_name(State s) {
  return s == State::kCopying ? "copying" : s == State::kDone ? "done" : "failed";
}

struct Job {
  // Which model entry this is: identifiers start again when a new model is loaded.
  int32_t id = 0;
  int64_t started_ms = 0;
  std::string gateway_target;
  std::string source_root;
  std::string target_root;
  std::vector<Piece> pieces;
  uint64_t total = 0;
  int64_t rate = 0;
  // Guarded by the worker's mutex.
  State state = State::kCopying;
  uint64_t copied = 0;
  size_t piece = 0;
  uint64_t piece_offset = 0;
  uint64_t allowed = 0;
  bool free_running = false;
  bool busy = false;
  // The worker's alone.
  int in = -1;
  int out = -1;
  // The file root the copy works beneath, held for the copy's life.
  int root = -1;

  ~Job() {
    close_files();
    if (root >= 0) close(root);
  }
  void close_files() {
    if (in >= 0) close(in);
    if (out >= 0) close(out);
    in = out = -1;
  }
};

struct Worker {
  std::mutex m;
  std::condition_variable cv;  // work granted, progress made, or stop asked
  std::vector<std::shared_ptr<Job>> jobs;
  std::thread thread;
  bool stopping = false;
};

// Never destroyed: operations may still run from other libraries' exit handlers
// after the worker has been stopped.
Worker& worker() {
  static Worker* w = new Worker;
  return *w;
}

int64_t real_ms() { return g_get_real_time() / 1000; }

int64_t clock_ms() { return clock_pinned() ? now() * 1000 : real_ms(); }

uint64_t allowance(const Job& job, int64_t at_ms) {
  if (job.rate <= 0) return job.total;
  if (at_ms <= job.started_ms) return 0;
  unsigned __int128 bytes = static_cast<unsigned __int128>(job.rate) *
                            static_cast<unsigned __int128>(at_ms - job.started_ms) / 1000;
  return bytes < job.total ? static_cast<uint64_t>(bytes) : job.total;
}

bool within(const std::string& path, const std::string& folder) {
  return path == folder || (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
                            path[folder.size()] == '/');
}

// The pieces of copying source (a file or a folder tree) to target, beneath root.
// Symbolic links and special files inside a folder are left out: a copy never leaves
// the disk.
bool walk(int root, const std::string& source, const std::string& target, std::vector<Piece>* pieces,
          uint64_t* total) {
  Fd at(open_beneath(root, source, O_PATH));
  struct stat st;
  if (!at.ok() || fstat(at.get(), &st) != 0) return false;
  if (S_ISREG(st.st_mode)) {
    pieces->push_back(Piece{source, target, static_cast<uint64_t>(st.st_size), false});
    *total += static_cast<uint64_t>(st.st_size);
    return true;
  }
  if (!S_ISDIR(st.st_mode)) return false;
  pieces->push_back(Piece{source, target, 0, true});
  int fd = open_beneath(root, source, O_RDONLY | O_DIRECTORY);
  DIR* dir = fd >= 0 ? fdopendir(fd) : nullptr;
  if (dir == nullptr) {
    if (fd >= 0) close(fd);
    return false;
  }
  std::vector<std::string> names;
  while (dirent* e = readdir(dir)) {
    struct stat child;
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0 ||
        fstatat(dirfd(dir), e->d_name, &child, AT_SYMLINK_NOFOLLOW) != 0 ||
        !(S_ISREG(child.st_mode) || S_ISDIR(child.st_mode))) {
      continue;
    }
    names.emplace_back(e->d_name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    if (!walk(root, source + "/" + name, target + "/" + name, pieces, total)) return false;
  }
  return true;
}

// Opens the copy's target file beneath root, never through a link: made new at the
// start of a file (an existing regular file is emptied first, as a copy over it does),
// or opened as it is to resume. Never the source itself (a hard link to it, or the
// same file reached another way), never a FIFO or device. -1 on refusal.
int open_target(int root, const std::string& path, int source, bool resume) {
  std::string name;
  Fd parent(open_parent_beneath(root, path, &name));
  if (!parent.ok()) return -1;
  // Non-blocking: a FIFO planted at the target fails the copy instead of stalling it.
  constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  Fd out(resume ? -1 : openat(parent.get(), name.c_str(), kFlags | O_CREAT | O_EXCL, 0644));
  if (out.ok()) return out.release();
  if (!resume && errno != EEXIST) return -1;
  out.reset(openat(parent.get(), name.c_str(), kFlags));
  struct stat in_st, out_st;
  if (!out.ok() || fstat(out.get(), &out_st) != 0 || fstat(source, &in_st) != 0 || !S_ISREG(out_st.st_mode) ||
      (in_st.st_dev == out_st.st_dev && in_st.st_ino == out_st.st_ino)) {
    return -1;
  }
  if (!resume && ftruncate(out.get(), 0) != 0) return -1;
  return out.release();
}

// Whether the worker has something to do for job without passing allowed bytes.
bool has_work(const Job& job, uint64_t allowed) {
  if (job.state != State::kCopying || job.piece >= job.pieces.size()) return false;
  const Piece& p = job.pieces[job.piece];
  return p.folder || job.piece_offset >= p.size || job.copied < allowed;
}

uint64_t worker_allowance(const Job& job) {
  uint64_t allowed = job.allowed;
  if (job.free_running) allowed = std::max(allowed, allowance(job, real_ms()));
  return allowed;
}

struct Step {
  bool ok;
  bool piece_done;
  uint64_t bytes;
};

// One step of job outside the lock: a folder made, a file opened or closed, or at
// most budget bytes copied through buffer (kChunk bytes).
Step copy_step(Job& job, size_t index, uint64_t offset, uint64_t budget, char* buffer) {
  const Piece& p = job.pieces[index];
  if (p.folder) {
    std::string name;
    Fd parent(open_parent_beneath(job.root, p.to, &name));
    struct stat st;
    bool ok = parent.ok() &&
              (mkdirat(parent.get(), name.c_str(), 0755) == 0 ||
               (errno == EEXIST && fstatat(parent.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISDIR(st.st_mode)));
    return Step{ok, true, 0};
  }
  if (job.in < 0) {
    struct stat st;
    job.in = open_beneath(job.root, p.from, O_RDONLY | O_NONBLOCK);
    if (job.in >= 0 && (fstat(job.in, &st) != 0 || !S_ISREG(st.st_mode))) {
      close(job.in);
      job.in = -1;
    }
    job.out = job.in >= 0 ? open_target(job.root, p.to, job.in, offset > 0) : -1;
    if (job.in < 0 || job.out < 0 || lseek(job.in, static_cast<off_t>(offset), SEEK_SET) < 0 ||
        lseek(job.out, static_cast<off_t>(offset), SEEK_SET) < 0) {
      job.close_files();
      return Step{false, false, 0};
    }
  }
  if (offset >= p.size) {
    job.close_files();
    return Step{true, true, 0};
  }
  size_t want = static_cast<size_t>(std::min<uint64_t>({kChunk, p.size - offset, budget}));
  ssize_t got = read(job.in, buffer, want);
  // A file that shrank under the copy fails it.
  if (got <= 0) {
    job.close_files();
    return Step{false, false, 0};
  }
  for (ssize_t done = 0; done < got;) {
    ssize_t n = write(job.out, buffer + done, static_cast<size_t>(got - done));
    if (n <= 0) {
      job.close_files();
      return Step{false, false, 0};
    }
    done += n;
  }
  return Step{true, false, static_cast<uint64_t>(got)};
}

void run_worker() {
  Worker& w = worker();
  std::vector<char> buffer(kChunk);
  std::unique_lock<std::mutex> lock(w.m);
  size_t next = 0;
  for (;;) {
    if (w.stopping) return;
    std::shared_ptr<Job> job;
    bool clock_bound = false;
    for (size_t i = 0; i < w.jobs.size() && job == nullptr; ++i) {
      const std::shared_ptr<Job>& candidate = w.jobs[(next + i) % w.jobs.size()];
      if (has_work(*candidate, worker_allowance(*candidate))) {
        job = candidate;
        next = (next + i + 1) % w.jobs.size();
      } else if (candidate->state == State::kCopying && candidate->free_running) {
        clock_bound = true;
      }
    }
    if (job == nullptr) {
      // Free-running copies wait for the clock; pinned ones for the next grant.
      if (clock_bound) {
        w.cv.wait_for(lock, std::chrono::milliseconds(20));
      } else {
        w.cv.wait(lock);
      }
      continue;
    }
    size_t index = job->piece;
    uint64_t offset = job->piece_offset;
    uint64_t allowed = worker_allowance(*job);
    uint64_t budget = allowed > job->copied ? allowed - job->copied : 0;
    job->busy = true;
    lock.unlock();
    Step step = copy_step(*job, index, offset, budget, buffer.data());
    lock.lock();
    job->busy = false;
    if (job->state == State::kCopying) {
      if (!step.ok) {
        job->state = State::kFailed;
      } else {
        job->copied += step.bytes;
        job->piece_offset += step.bytes;
        if (step.piece_done) {
          ++job->piece;
          job->piece_offset = 0;
          if (job->piece >= job->pieces.size()) job->state = State::kDone;
        }
      }
    }
    if (job->state != State::kCopying) job->close_files();
    w.cv.notify_all();
  }
}

// Adds job and makes sure the worker runs (unless the library is being unloaded: the
// model keeps the copy, and the next run resumes it). Lock held.
void submit(Worker& w, std::shared_ptr<Job> job) {
  w.jobs.push_back(std::move(job));
  if (!w.thread.joinable() && !w.stopping) w.thread = std::thread(run_worker);
  w.cv.notify_all();
}

// Joins the worker when the library is unloaded or the process exits.
struct WorkerStop {
  ~WorkerStop() { stop_copy_worker(); }
} worker_stop;

// Positions a resumed job at its copied bytes: whole files already copied are
// skipped, folders and empty files at the resume point are simply made again. Lock
// held.
void seek_to(Job& job, uint64_t copied) {
  uint64_t left = std::min(copied, job.total);
  job.copied = left;
  while (job.piece < job.pieces.size()) {
    uint64_t size = job.pieces[job.piece].size;
    bool skip = size == 0 ? left > 0 : left >= size;
    if (!skip) break;
    left -= size;
    ++job.piece;
  }
  job.piece_offset = left;
  if (job.piece >= job.pieces.size()) job.state = State::kDone;
}

json_t* transfer_list() {
  json_t* storage = object_at("storage");
  json_t* list = json_object_get(storage, "transfers");
  if (!json_is_array(list)) {
    list = json_array();
    json_object_set_new(storage, "transfers", list);
  }
  return list;
}

bool is_entry_of(json_t* entry, const Job& job) {
  return int_of(entry, "id") == job.id && int_of(entry, "started_ms") == job.started_ms &&
         job.gateway_target == text_of(entry, "target");
}

// A job for a model entry whose copy was started by an earlier run.
std::shared_ptr<Job> resumed(json_t* entry) {
  auto job = std::make_shared<Job>();
  job->id = static_cast<int32_t>(int_of(entry, "id"));
  job->started_ms = int_of(entry, "started_ms");
  job->gateway_target = text_of(entry, "target");
  job->rate = int_of(entry, "rate");
  std::string reason;
  job->root = open_file_root(&reason);
  if (job->root < 0 || !disk_relative_path(job->root, text_of(entry, "source"), &job->source_root) ||
      !disk_relative_path(job->root, text_of(entry, "target"), &job->target_root) ||
      !walk(job->root, job->source_root, job->target_root, &job->pieces, &job->total)) {
    job->state = State::kFailed;
    return job;
  }
  seek_to(*job, static_cast<uint64_t>(int_of(entry, "copied")));
  return job;
}

bool record(json_t* entry, const Job& job) {
  bool changed = int_of(entry, "copied") != static_cast<json_int_t>(job.copied) ||
                 int_of(entry, "total") != static_cast<json_int_t>(job.total) ||
                 strcmp(text_of(entry, "state"), state_name(job.state)) != 0;
  if (changed) {
    json_object_set_new(entry, "copied", json_integer(static_cast<json_int_t>(job.copied)));
    json_object_set_new(entry, "total", json_integer(static_cast<json_int_t>(job.total)));
    json_object_set_new(entry, "state", json_string(state_name(job.state)));
  }
  return changed;
}

// Forgets the oldest finished transfers beyond what the model keeps.
bool trim(json_t* list) {
  size_t finished = 0;
  for (size_t i = 0; i < json_array_size(list); ++i) {
    if (strcmp(text_of(json_array_get(list, i), "state"), "copying") != 0) ++finished;
  }
  bool changed = false;
  for (size_t i = 0; finished > kFinishedKept && i < json_array_size(list);) {
    if (strcmp(text_of(json_array_get(list, i), "state"), "copying") != 0) {
      json_array_remove(list, i);
      --finished;
      changed = true;
    } else {
      ++i;
    }
  }
  return changed;
}

}  // namespace

void sync_transfers() {
  Worker& w = worker();
  json_t* list = transfer_list();
  bool changed = false;
  std::unique_lock<std::mutex> lock(w.m);
  // Jobs of a model that has since been replaced stop.
  std::vector<json_t*> matched(w.jobs.size(), nullptr);
  for (size_t j = 0; j < w.jobs.size(); ++j) {
    for (size_t i = 0; i < json_array_size(list) && matched[j] == nullptr; ++i) {
      if (is_entry_of(json_array_get(list, i), *w.jobs[j])) matched[j] = json_array_get(list, i);
    }
    if (matched[j] == nullptr) w.jobs[j]->state = State::kFailed;
  }
  for (size_t i = 0; i < json_array_size(list); ++i) {
    json_t* entry = json_array_get(list, i);
    if (strcmp(text_of(entry, "state"), "copying") != 0) continue;
    if (std::find(matched.begin(), matched.end(), entry) != matched.end()) continue;
    std::shared_ptr<Job> job = resumed(entry);
    changed |= record(entry, *job);
    if (job->state != State::kCopying) continue;
    matched.push_back(entry);
    submit(w, std::move(job));
  }
  int64_t at = clock_ms();
  for (const std::shared_ptr<Job>& job : w.jobs) {
    job->free_running = !clock_pinned();
    job->allowed = allowance(*job, at);
  }
  w.cv.notify_all();
  w.cv.wait_for(lock, kCatchUpWait, [&] {
    for (const std::shared_ptr<Job>& job : w.jobs) {
      if (job->busy || has_work(*job, job->allowed)) return false;
    }
    return true;
  });
  std::vector<std::shared_ptr<Job>> running;
  for (size_t j = 0; j < w.jobs.size(); ++j) {
    if (matched[j] != nullptr) changed |= record(matched[j], *w.jobs[j]);
    if (w.jobs[j]->state == State::kCopying) running.push_back(w.jobs[j]);
  }
  w.jobs.swap(running);
  lock.unlock();
  changed |= trim(list);
  if (changed) model_changed();
}

int32_t start_transfer(int root, const std::string& source, const std::string& target,
                       const char* gateway_source, const char* gateway_target) {
  auto job = std::make_shared<Job>();
  job->root = fcntl(root, F_DUPFD_CLOEXEC, 0);
  if (job->root < 0 || !walk(root, source, target, &job->pieces, &job->total)) return 0;
  json_t* storage = object_at("storage");
  json_int_t id = int_of(storage, "next_transfer", 1);
  if (id <= 0 || id >= INT32_MAX) id = 1;
  json_object_set_new(storage, "next_transfer", json_integer(id + 1));
  job->id = static_cast<int32_t>(id);
  job->started_ms = clock_ms();
  job->gateway_target = gateway_target;
  job->source_root = source;
  job->target_root = target;
  job->rate = int_of(storage, "copy_rate");
  json_t* entry = json_object();
  json_object_set_new(entry, "id", json_integer(id));
  json_object_set_new(entry, "source", json_string(gateway_source));
  json_object_set_new(entry, "target", json_string(gateway_target));
  json_object_set_new(entry, "started_ms", json_integer(job->started_ms));
  json_object_set_new(entry, "rate", json_integer(job->rate));
  json_object_set_new(entry, "copied", json_integer(0));
  json_object_set_new(entry, "total", json_integer(static_cast<json_int_t>(job->total)));
  json_object_set_new(entry, "state", json_string("copying"));
  json_array_append_new(transfer_list(), entry);
  {
    Worker& w = worker();
    std::lock_guard<std::mutex> lock(w.m);
    submit(w, std::move(job));
  }
  model_changed();
  return static_cast<int32_t>(id);
}

void cancel_transfers_under(const std::string& folder) {
  Worker& w = worker();
  std::unique_lock<std::mutex> lock(w.m);
  for (const std::shared_ptr<Job>& job : w.jobs) {
    if (job->state == State::kCopying &&
        (within(job->source_root, folder) || within(job->target_root, folder))) {
      job->state = State::kFailed;
    }
  }
  w.cv.wait_for(lock, kCatchUpWait, [&] {
    for (const std::shared_ptr<Job>& job : w.jobs) {
      if (job->busy) return false;
    }
    return true;
  });
}

void stop_copy_worker() {
  Worker& w = worker();
  std::thread thread;
  {
    std::lock_guard<std::mutex> lock(w.m);
    w.stopping = true;
    w.cv.notify_all();
    thread.swap(w.thread);
  }
  if (thread.joinable()) thread.join();
}

}  // namespace velsim
