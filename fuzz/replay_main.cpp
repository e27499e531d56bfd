// Replays saved inputs through a fuzz target without libFuzzer: each file named on
// the command line, or each file of a folder, is run once.
#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>

#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool run_file(const std::string& path) {
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) {
    fprintf(stderr, "cannot open %s\n", path.c_str());
    return false;
  }
  std::vector<uint8_t> data;
  uint8_t buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) data.insert(data.end(), buf, buf + n);
  bool read_error = ferror(f) != 0;
  (void)fclose(f);  // opened for reading: closing cannot lose anything
  if (read_error) {
    fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  LLVMFuzzerTestOneInput(data.data(), data.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    struct stat st;
    if (stat(argv[i], &st) != 0) return 1;
    if (!S_ISDIR(st.st_mode)) {
      if (!run_file(argv[i])) return 1;
      ++runs;
      continue;
    }
    DIR* dir = opendir(argv[i]);
    if (dir == nullptr) return 1;
    while (struct dirent* e = readdir(dir)) {
      if (e->d_name[0] == '.') continue;
      if (!run_file(std::string(argv[i]) + "/" + e->d_name)) return 1;
      ++runs;
    }
    closedir(dir);
  }
  printf("replayed %d inputs\n", runs);
  return 0;
}
