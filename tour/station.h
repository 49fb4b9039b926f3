// What a station gets and gives. A station shows one kind of operation on one picture: a small function that calls the
// library and hangs the results on a wall.
#ifndef QOR_TOUR_STATION_H
#define QOR_TOUR_STATION_H

#include <string>
#include <vector>

#include "image.h"
#include "measure.h"
#include "visible.h"

namespace tour {

struct Picture {
  std::string name;    // as the visitor gave it, without the folder
  std::string folder;  // of its exhibits, inside the output folder
  Image8u gray;
  Image8u colour;  // empty where the picture has none
};

// What is written beside a result.
struct Label {
  std::string file;  // name of its file, without folder and ending
  std::string title;
  std::string caption;
};

// Rows of cells; the first row and the first column are headings.
using Table = std::vector<std::vector<std::string>>;

// A result on the page: a picture, or a table.
struct Exhibit {
  Label label;
  std::vector<std::string> code;
  Times times;
  Visible visible;
  Table table = {};
};

using Wall = std::vector<Exhibit>;

// The steps as lines of C.
std::vector<std::string> codeOf(const std::vector<Step>& steps);

// Runs the steps, takes their time, and hangs what they left in `result`, made visible by `show`.
template <class T, class Show>
void hang(Wall& wall, const Label& label, const std::vector<Step>& steps, const Image<T>& result, Show show) {
  const Times times = measure(steps, result);
  wall.push_back({label, codeOf(steps), times, show(result)});
}

enum class Input { gray, colour };

struct Station {
  const char* name;
  const char* title;
  const char* about;
  Input input;  // stations on colour are left out for grey pictures
  void (*visit)(const Picture& picture, Wall& wall);
};

// All stations, in the order of the tour. A new one is a function declared here and a line in stations.cpp.
const std::vector<Station>& stations();

void visitSlopes(const Picture& picture, Wall& wall);
void visitCurvature(const Picture& picture, Wall& wall);
void visitSmoothing(const Picture& picture, Wall& wall);
void visitOwnKernels(const Picture& picture, Wall& wall);
void visitColour(const Picture& picture, Wall& wall);
void visitEdges(const Picture& picture, Wall& wall);
void visitStatistics(const Picture& picture, Wall& wall);
void visitContrast(const Picture& picture, Wall& wall);
void visitBackground(const Picture& picture, Wall& wall);
void visitMorphology(const Picture& picture, Wall& wall);
void visitPyramids(const Picture& picture, Wall& wall);
void visitCorners(const Picture& picture, Wall& wall);
void visitTracking(const Picture& picture, Wall& wall);
void visitUndistortion(const Picture& picture, Wall& wall);
void visitSuperResolution(const Picture& picture, Wall& wall);
void visitDistances(const Picture& picture, Wall& wall);
void visitInpainting(const Picture& picture, Wall& wall);
void visitFloodFill(const Picture& picture, Wall& wall);
void visitSegments(const Picture& picture, Wall& wall);
void visitLines(const Picture& picture, Wall& wall);
void visitMeasures(const Picture& picture, Wall& wall);
void visitDetection(const Picture& picture, Wall& wall);
void visitStreet(const Picture& picture, Wall& wall);

}  // namespace tour

#endif
