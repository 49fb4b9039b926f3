// The CPU quota of the process's control groups, in processors.
//
// /proc/self/cgroup names the groups and /proc/self/mountinfo says where their directories are, which differs between
// systems, and between a container and its host. A group is held to its own quota and to those of all groups above it.
#include "core/quota.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "core/textfile.h"

namespace core {

int32_t processorsOfQuota(int64_t quota, int64_t period) {
  if (quota <= 0 || period <= 0) return noQuota;
  const int64_t processors = (quota - 1) / period + 1;
  return processors < noQuota ? static_cast<int32_t>(processors) : noQuota;
}

int32_t parseCpuMax(const char* text) {
  int64_t quota = 0;
  int64_t period = 0;
  if (!parseDigits(&text, &quota) || *text++ != ' ') return noQuota;
  if (!parseDigits(&text, &period) || *text != '\0') return noQuota;
  return processorsOfQuota(quota, period);
}

static int32_t quotaOfGroupV2(const char* directory) {
  char text[64];
  return readText(text, sizeof text, "%s/cpu.max", directory) ? parseCpuMax(text) : noQuota;
}

static int64_t readMicroseconds(const char* directory, const char* name) {
  char text[64];
  if (!readText(text, sizeof text, "%s/%s", directory, name)) return 0;
  const char* cursor = text;
  int64_t value = 0;
  return parseDigits(&cursor, &value) && *cursor == '\0' ? value : 0;
}

// A quota of -1 stands for none; like all else that is not a number, it reads as 0.
static int32_t quotaOfGroupV1(const char* directory) {
  return processorsOfQuota(readMicroseconds(directory, "cpu.cfs_quota_us"),
                           readMicroseconds(directory, "cpu.cfs_period_us"));
}

// Number of "/.." at the start of a path. Groups above the top of the process's own view of the tree appear that way.
static int stepsUp(const char* path, const char** rest) {
  int steps = 0;
  while (strncmp(path, "/..", 3) == 0 && (path[3] == '/' || path[3] == '\0')) {
    path += 3;
    ++steps;
  }
  *rest = path;
  return steps;
}

const char* pathInMount(const char* group, const char* mountRoot) {
  const char* groupRest = nullptr;
  const char* mountRest = nullptr;
  const int groupSteps = stepsUp(group, &groupRest);
  const int mountSteps = stepsUp(mountRoot, &mountRest);
  if (strcmp(mountRest, "/") == 0) mountRest = "";
  // The way down from a mount further up is not known, but its top is above the group and its quota holds.
  if (mountSteps > groupSteps && *mountRest == '\0') return "";
  if (mountSteps != groupSteps) return nullptr;
  const size_t length = strlen(mountRest);
  if (strncmp(groupRest, mountRest, length) != 0) return nullptr;
  groupRest += length;
  if (*groupRest != '\0' && *groupRest != '/') return nullptr;
  return strcmp(groupRest, "/") == 0 ? "" : groupRest;
}

static int32_t tightestOnTheWayUp(const char* root, const char* mountPoint, const char* below, bool v2) {
  char directory[PATH_MAX];
  const int length = snprintf(directory, sizeof directory, "%s%s%s", root, mountPoint, below);
  if (length < 0 || static_cast<size_t>(length) >= sizeof directory) return noQuota;
  char* const top = directory + length - strlen(below);
  int32_t tightest = noQuota;
  for (;;) {
    const int32_t quota = v2 ? quotaOfGroupV2(directory) : quotaOfGroupV1(directory);
    if (quota < tightest) tightest = quota;
    char* slash = strrchr(top, '/');
    if (!slash) return tightest;
    *slash = '\0';
  }
}

static bool listHas(const char* list, const char* item) {
  const size_t length = strlen(item);
  for (const char* at = list; at; at = strchr(at, ',')) {
    if (*at == ',') ++at;
    if (strncmp(at, item, length) == 0 && (at[length] == ',' || at[length] == '\0')) return true;
  }
  return false;
}

// The kernel writes blanks and backslashes in a path as three octal digits behind a backslash.
static void unescape(char* path) {
  char* to = path;
  for (const char* from = path; *from != '\0'; ++to) {
    const bool escaped = from[0] == '\\' && from[1] >= '0' && from[1] <= '3' && from[2] >= '0' && from[2] <= '7' &&
                         from[3] >= '0' && from[3] <= '7';
    *to = escaped ? static_cast<char>((from[1] - '0') * 64 + (from[2] - '0') * 8 + (from[3] - '0')) : *from;
    from += escaped ? 4 : 1;
  }
  *to = '\0';
}

struct Mount {
  char* mountRoot;
  char* mountPoint;
};

// Takes apart a line such as "31 23 0:28 /root /point rw,relatime shared:9 - cgroup source rw,cpu": the fields before
// the lone dash vary in number. Returns false for mounts of other kinds.
static bool parseMount(char* line, bool v2, Mount* mount) {
  char* tail = strstr(line, " - ");
  if (!tail) return false;
  *tail = '\0';
  const char* type = tail + 3;
  const char* options = strrchr(type, ' ');
  if (!options) return false;
  if (v2 ? strncmp(type, "cgroup2 ", 8) != 0 : strncmp(type, "cgroup ", 7) != 0 || !listHas(options + 1, "cpu")) {
    return false;
  }
  char* rest = nullptr;
  char* field = strtok_r(line, " ", &rest);
  for (int skipped = 0; field && skipped < 3; ++skipped) field = strtok_r(nullptr, " ", &rest);
  mount->mountRoot = field;
  mount->mountPoint = field ? strtok_r(nullptr, " ", &rest) : nullptr;
  if (!mount->mountPoint) return false;
  unescape(mount->mountRoot);
  unescape(mount->mountPoint);
  return true;
}

// Calls body(line) for each line of a file, without its newline; a file that cannot be read has none. Mount lines can
// be longer than any buffer that one would put on a stack.
template <class Body>
static void forEachLine(const char* root, const char* name, Body body) {
  char path[PATH_MAX];
  const int length = snprintf(path, sizeof path, "%s%s", root, name);
  if (length < 0 || static_cast<size_t>(length) >= sizeof path) return;
  FILE* file = fopen(path, "re");
  if (!file) return;
  char* line = nullptr;
  size_t room = 0;
  while (getline(&line, &room, file) > 0) {
    line[strcspn(line, "\n")] = '\0';
    body(line);
  }
  free(line);
  fclose(file);
}

static int32_t quotaOfGroup(const char* root, const char* group, bool v2) {
  int32_t tightest = noQuota;
  forEachLine(root, "/proc/self/mountinfo", [&](char* line) {
    Mount mount;
    if (!parseMount(line, v2, &mount)) return;
    const char* below = pathInMount(group, mount.mountRoot);
    if (!below) return;
    const int32_t quota = tightestOnTheWayUp(root, mount.mountPoint, below, v2);
    if (quota < tightest) tightest = quota;
  });
  return tightest;
}

int32_t quotaProcessors(const char* root) {
  int32_t tightest = noQuota;
  // Lines read "number:controllers:path". Version 2 is the line that begins with "0::"; a path may have colons.
  forEachLine(root, "/proc/self/cgroup", [&](char* line) {
    char* controllers = strchr(line, ':');
    char* group = controllers ? strchr(controllers + 1, ':') : nullptr;
    if (!group) return;
    *controllers++ = '\0';
    *group++ = '\0';
    const bool v2 = strcmp(line, "0") == 0 && *controllers == '\0';
    if (!v2 && !listHas(controllers, "cpu")) return;
    const int32_t quota = quotaOfGroup(root, group, v2);
    if (quota < tightest) tightest = quota;
  });
  return tightest;
}

}  // namespace core
