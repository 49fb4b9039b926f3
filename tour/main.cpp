// The tour: reads pictures, walks them past all stations, and leaves a page with the results.
//
// All pictures are read before any work begins. If one of them is bad, every bad one is named and nothing is made.
#include <cctype>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>

#include "failure.h"
#include "page.h"
#include "picture_file.h"
#include "station.h"

namespace fs = std::filesystem;
using namespace tour;

static const char help[] =
    "Usage: qor_tour [--out FOLDER] [PICTURE...]\n"
    "\n"
    "Shows the library at work on pictures: PNG (any kind) and JPEG (grey or colour) files, or three photographs of "
    "its\n"
    "own if none are named. Writes the results as PNG files and a page, index.html, that shows them with the calls "
    "that\n"
    "made them and their times.\n"
    "\n"
    "  --out FOLDER   where to write, out/tour by default; made if need be, files of the same names are replaced\n"
    "  --help         this text\n"
    "  --             everything behind it is a picture\n"
    "\n"
    "All pictures are read first. If one cannot be read or is too large, the tour names it and ends without making\n"
    "anything. Exit status: 0 if the page was made, 1 if not, 2 for wrong usage.\n";

namespace {

struct Options {
  std::string out = "out/tour";
  std::vector<std::string> paths;
};

}  // namespace

// False for wrong usage.
static bool parse(int argc, char** argv, Options& options, bool& wantsHelp) {
  bool allPictures = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (allPictures || argument.empty() || argument[0] != '-') {
      options.paths.push_back(argument);
    } else if (argument == "--") {
      allPictures = true;
    } else if (argument == "--help" || argument == "-h") {
      wantsHelp = true;
    } else if (argument == "--out" && i + 1 < argc && *argv[i + 1]) {
      options.out = argv[++i];
    } else if (argument == "--out") {
      std::fprintf(stderr, "qor_tour: --out needs a folder\n");
      return false;
    } else {
      std::fprintf(stderr, "qor_tour: unknown option %s, try --help\n", argument.c_str());
      return false;
    }
  }
  return true;
}

// Letters and digits of the file's name, lower case, hyphens between them; a number behind it if that is taken.
static std::string folderName(const std::string& path, std::set<std::string>& taken) {
  std::string base;
  for (const char c : fs::path(path).stem().string()) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 128 && std::isalnum(u)) {
      base += static_cast<char>(std::tolower(u));
    } else if (!base.empty() && base.back() != '-') {
      base += '-';
    }
  }
  while (!base.empty() && base.back() == '-') base.pop_back();
  if (base.empty()) base = "picture";
  std::string name = base.substr(0, 80);
  for (int number = 2; !taken.insert(name).second; ++number) name = base.substr(0, 80) + "-" + std::to_string(number);
  return name;
}

static std::vector<Picture> readAll(const std::vector<std::string>& paths) {
  std::vector<Picture> pictures;
  std::set<std::string> taken;
  bool bad = false;
  for (const std::string& path : paths) {
    try {
      Image8u image = readPicture(path);
      Picture picture;
      picture.name = fs::path(path).filename().string();
      picture.folder = folderName(path, taken);
      picture.gray = toGray(image);
      picture.gray.extendEdges();
      if (image.channels == 3) picture.colour = std::move(image);
      pictures.push_back(std::move(picture));
    } catch (const Failure& failure) {
      std::fprintf(stderr, "qor_tour: %s\n", failure.what());
      bad = true;
    }
  }
  if (bad) throw Failure("nothing was made");
  return pictures;
}

static void makeFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw Failure(folder.string() + ": " + error.message());
}

static Section visit(const Picture& picture, const fs::path& out) {
  const bool hasColour = !picture.colour.empty();
  makeFolder(out / picture.folder);
  std::set<std::string> names;
  const auto write = [&](const std::string& name, const Image8u& image) {
    if (!names.insert(name).second) throw Failure(name + ": two results have this name");
    const std::string file = picture.folder + "/" + name + ".png";
    writePng((out / file).string(), image);
    return file;
  };
  Section section;
  section.name = picture.name;
  section.folder = picture.folder;
  section.kind = hasColour ? "colour" : "grey";
  section.width = picture.gray.width;
  section.height = picture.gray.height;
  const std::string gray = write("before-grey", picture.gray);
  section.file = hasColour ? write("before-colour", picture.colour) : gray;
  for (const Station& station : stations()) {
    if (station.input == Input::colour && !hasColour) continue;
    std::printf("  %-26s", station.title);
    std::fflush(stdout);
    Wall wall;
    station.visit(picture, wall);
    Room room{&station, station.input == Input::colour ? section.file : gray, {}};
    for (const Exhibit& exhibit : wall) {
      const std::string file = exhibit.table.empty() ? write(exhibit.label.file, exhibit.visible.image) : "";
      room.exhibits.push_back({exhibit.label, exhibit.code, exhibit.times, exhibit.visible.scale, file, exhibit.table});
    }
    std::printf("%zu results\n", room.exhibits.size());
    section.rooms.push_back(std::move(room));
  }
  return section;
}

static void writeText(const fs::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw Failure(path.string() + ": cannot be written");
}

static void makeTour(const Options& options) {
  const std::vector<Picture> pictures = readAll(options.paths);
  const fs::path out = options.out;
  makeFolder(out);
  std::vector<Section> sections;
  for (size_t i = 0; i < pictures.size(); ++i) {
    const Picture& picture = pictures[i];
    std::printf("[%zu/%zu] %s, %dx%d\n", i + 1, pictures.size(), picture.name.c_str(), picture.gray.width,
                picture.gray.height);
    sections.push_back(visit(picture, out));
  }
  const fs::path page = out / "index.html";
  writeText(page, makePage(sections));
  std::printf("The page is %s\n", fs::absolute(page).lexically_normal().c_str());
}

int main(int argc, char** argv) {
  try {
    Options options;
    bool wantsHelp = false;
    if (!parse(argc, argv, options, wantsHelp)) return 2;
    if (wantsHelp) {
      std::fputs(help, stdout);
      return 0;
    }
    if (options.paths.empty()) {
      for (const char* name : {"camera.png", "coins.png", "chelsea.png"}) {
        options.paths.push_back(std::string(QOR_TOUR_PHOTOS "/") + name);
      }
    }
    makeTour(options);
    return 0;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "qor_tour: out of memory\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "qor_tour: %s\n", error.what());
  }
  return 1;
}
