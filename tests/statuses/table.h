// A table of all exported functions, a row each: what its arguments are, and which faults in them give which status, in
// the order of the checks. The engine makes good arguments from a row, then breaks them one by one and two by two.
//
// The names and types of a function's arguments are those of its declaration, so a row tells only what they do not: a
// pointer that is followed by a step is an image of as many channels as the function's name tells (a mask has one),
// every other pointer is room for whatever it points to.
#pragma once

#include <functional>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qorcvmx/types.h"

namespace statuses {

// An argument of whatever type, taken apart when the call is made.
struct Value {
  double number = 0;
  void* pointer = nullptr;
  alignas(8) unsigned char record[16] = {};

  Value() = default;
  template <class T, class = std::enable_if_t<!std::is_same_v<T, Value>>>
  Value(T value) {
    if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
      number = static_cast<double>(value);
    } else if constexpr (std::is_pointer_v<T>) {
      pointer = const_cast<void*>(static_cast<const void*>(value));
    } else {
      static_assert(sizeof(T) <= sizeof record);
      __builtin_memcpy(record, &value, sizeof(T));
    }
  }
  template <class T>
  T as() const {
    if constexpr (std::is_arithmetic_v<T>) {
      return static_cast<T>(number);
    } else if constexpr (std::is_pointer_v<T>) {
      return reinterpret_cast<T>(pointer);
    } else {
      T result;
      __builtin_memcpy(&result, record, sizeof(T));
      return result;
    }
  }
};

// What a declaration tells of an argument.
enum class Type { pointer, number, size, record };
struct Parameter {
  std::string name;
  Type type;
  int element;    // bytes of what a pointer points to; 0 where that is unknown
  bool floating;  // ... and whether they are float or double
};

struct Function {
  std::string name;
  std::vector<Parameter> parameters;
  void (*address)();
  QorStatus (*invoke)(void (*address)(), const Value* values);
};

const std::map<std::string, Function>& functions();  // all that the public header declares
QorStatus call(const std::string& name, std::initializer_list<Value> values);

// The arguments of one call, by name.
struct Call {
  const Function* function;
  std::vector<Value> values;

  Value& at(const std::string& name);
  uint8_t* bytes(const std::string& name) { return static_cast<uint8_t*>(at(name).pointer); }
  QorStatus run() const { return function->invoke(function->address, values.data()); }
};

using Change = std::function<void(Call&)>;

struct Fault {
  enum Kind { plain, stepBelowRow, narrows };
  std::string argument;  // two faults in one argument are not combined
  QorStatus status;
  Change apply;
  Kind kind = plain;
  std::string what;
  std::string writes = "";  // arguments that this failure may write to
};

// A row. Names are lists of arguments parted by blanks. Functions that name a status add checks, in the order of the
// calls; the others describe good arguments.
class Row {
 public:
  explicit Row(const std::string& name);

  // Good arguments. The region is 16 by 12 pixels unless told otherwise.
  Row& with(const std::string& names, const Value& value);
  template <class T>
  Row& data(const std::string& name, std::initializer_list<T> elements) {
    const unsigned char* first = reinterpret_cast<const unsigned char*>(elements.begin());
    return bytes(name, std::vector<unsigned char>(first, first + elements.size() * sizeof(T)));
  }
  Row& bytes(const std::string& name, std::vector<unsigned char> content);
  Row& room(const std::string& names, int size);        // bytes behind a pointer, if not 64 (or 16384 for a buffer)
  Row& channels(const std::string& names, int number);  // if not what the function's name tells
  Row& region(const std::string& images, int32_t width, int32_t height);  // if not that of the call's region
  Row& rowBytes(const std::string& names, int perPixel);  // what the step test asks for, if not channels * element
  Row& setup(Change change);                              // makes records, before all calls
  Row& teardown(Change change);                           // after all calls
  Row& after(Change change);                              // after each call that succeeds
  Row& good(QorStatus status);                            // what a good call returns, if not qorStatusOk
  Row& frees(const std::string& function, const std::string& argument = "state");  // after success: *argument
  Row& half(const std::string& name, int bytes);  // a failed allocation may leave something behind these bytes
  Row& optional(const std::string& names);        // pointers that may be null
  Row& accepts(const std::string& names, std::vector<Value> values);  // further good values
  // A number that may be anything: a good value, and extreme ones are further good values.
  Row& any(const std::string& names, const Value& value);
  Row& acceptsCase(const std::string& what, Change change);
  Row& warns(const std::string& what, QorStatus status, Change change);  // a success with a status of its own

  // Checks.
  Row& null(const std::string& names = "");  // all pointers, if none is named
  Row& size(const std::string& names = "roiSize", QorStatus status = qorStatusBadSize);  // width or height below 1
  Row& step(const std::string& images = "");                                             // all images, if none is named
  // All images of elements wider than a byte, if none is named; to multiples of an element, if no number is given.
  Row& align(const std::string& images = "", int multiple = 0);
  Row& stepsAndAlign(const std::string& images);  // a step's length, its alignment, then the next image's
  Row& bad(const std::string& names, std::vector<Value> values, QorStatus status);
  Row& fault(const std::string& argument, QorStatus status, Change apply, const std::string& what = "");
  Row& writes(const std::string& names);  // the check just added may write there
  Row& narrows();                         // the faults just added make rows shorter, so steps fit that else would not

  // Calls with all faults and all good values; both return what went wrong.
  std::vector<std::string> run() const;
  // The good calls again, with the first allocation failing, the second one, and so on until all are granted.
  std::vector<std::string> runWithoutMemory(bool& allocates) const;
  size_t faults() const { return faults_.size(); }
  const std::string& name() const { return name_; }

 private:
  struct Prepared;
  void prepare(Prepared& prepared, std::vector<std::string>& wrong) const;
  std::vector<std::string> split(const std::string& names) const;
  const Parameter* parameter(const std::string& name) const;
  std::string stepOf(const std::string& name) const;
  bool isImage(const std::string& name) const { return !stepOf(name).empty(); }
  int channelsOf(const std::string& name) const;
  QoriSize regionOf(const std::string& image) const;

  std::string name_;
  const Function* function_;
  std::vector<std::string> mistakes_;
  std::map<std::string, Value> values_;
  std::map<std::string, std::vector<unsigned char>> contents_;
  std::map<std::string, int> rooms_, channels_, rowBytes_, halves_;
  std::multiset<std::string> treated_;  // arguments with a fault or a further good value
  std::vector<Change> setups_, teardowns_, afters_;
  struct GoodCase {
    std::string what;
    Change change;
    QorStatus status;
  };
  std::vector<GoodCase> goodCases_;
  std::map<std::string, QoriSize> regions_;
  std::vector<Fault> faults_;
  size_t firstOfLastCheck_ = 0;
  QorStatus good_ = qorStatusOk;
};

using Rows = std::vector<Row>;
constexpr int32_t goodWidth = 16, goodHeight = 12;

Rows arithRows(), statsRows(), filterRows(), morphRows(), pyramidRows(), featureRows(), distanceRows(), segmentRows(),
    detectRows(), motionRows(), geometryRows(), versionRows();

// Common values.
inline QoriSize sizeOf(int32_t width, int32_t height) { return {width, height}; }
inline QoriPoint point(int32_t x, int32_t y) { return {x, y}; }
inline void* pointerAt(const void* place) {
  void* result;
  __builtin_memcpy(&result, place, sizeof result);
  return result;
}
inline Value outOf(Call& call, const std::string& name) { return Value(pointerAt(call.bytes(name))); }

}  // namespace statuses
