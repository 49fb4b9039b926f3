// The page that the tour leaves behind: what is on it, and the HTML.
#ifndef QOR_TOUR_PAGE_H
#define QOR_TOUR_PAGE_H

#include <string>
#include <vector>

#include "station.h"

namespace tour {

// An exhibit whose picture has been written.
struct Shown {
  Label label;
  std::vector<std::string> code;
  Times times;
  std::string scale;
  std::string file;  // relative to the page; empty where there is a table
  Table table = {};
};

struct Room {
  const Station* station;
  std::string before;  // file of the picture that the station's calls read
  std::vector<Shown> exhibits;
};

struct Section {
  std::string name;
  std::string folder;
  std::string kind;
  std::string file;
  int32_t width;
  int32_t height;
  std::vector<Room> rooms;
};

// The whole page as HTML: one file, no scripts, nothing from a network.
std::string makePage(const std::vector<Section>& sections);

}  // namespace tour

#endif
