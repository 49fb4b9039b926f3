#include "statuses/table.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

#include "support/services.h"

namespace statuses {

Value& Call::at(const std::string& name) {
  for (size_t i = 0; i < function->parameters.size(); ++i)
    if (function->parameters[i].name == name) return values[i];
  throw std::logic_error(function->name + " has no argument " + name);
}

QorStatus call(const std::string& name, std::initializer_list<Value> values) {
  const Function& function = functions().at(name);
  if (function.parameters.size() != values.size()) throw std::logic_error(name + ": wrong number of arguments");
  return function.invoke(function.address, values.begin());
}

Row::Row(const std::string& name) : name_(name), function_(nullptr) {
  const auto found = functions().find(name);
  if (found == functions().end()) {
    mistakes_.push_back("no such function");
  } else {
    function_ = &found->second;
  }
  values_["roiSize"] = sizeOf(goodWidth, goodHeight);
}

std::vector<std::string> Row::split(const std::string& names) const {
  std::istringstream stream(names);
  std::vector<std::string> result;
  for (std::string name; stream >> name;) result.push_back(name);
  return result;
}

const Parameter* Row::parameter(const std::string& name) const {
  if (!function_) return nullptr;
  for (const Parameter& p : function_->parameters)
    if (p.name == name) return &p;
  throw std::logic_error(name_ + " has no argument " + name);
}

static bool isStep(const std::string& name) {
  return name.size() >= 4 && name.compare(name.size() - 4, 4, "Step") == 0;
}

// The step that follows an image, or nothing.
std::string Row::stepOf(const std::string& name) const {
  const std::vector<Parameter>& all = function_->parameters;
  for (size_t i = 0; i + 1 < all.size(); ++i)
    if (all[i].name == name && isStep(all[i + 1].name)) return all[i + 1].name;
  return "";
}

int Row::channelsOf(const std::string& name) const {
  if (const auto found = channels_.find(name); found != channels_.end()) return found->second;
  if (name == "mask" || name == "markers" || name == "distance" ||
      (name == "dst" && name_.find("_C3C1") != std::string::npos))
    return 1;
  if (name_.find("_C3") != std::string::npos) return 3;
  return name_.find("_C4") != std::string::npos ? 4 : 1;
}

Row& Row::with(const std::string& names, const Value& value) {
  for (const std::string& name : split(names)) {
    parameter(name);
    values_[name] = value;
  }
  return *this;
}

Row& Row::bytes(const std::string& name, std::vector<unsigned char> content) {
  parameter(name);
  contents_[name] = std::move(content);
  return *this;
}

Row& Row::room(const std::string& names, int size) {
  for (const std::string& name : split(names)) {
    parameter(name);
    rooms_[name] = size;
  }
  return *this;
}

Row& Row::channels(const std::string& names, int number) {
  for (const std::string& name : split(names)) channels_[name] = number;
  return *this;
}

Row& Row::rowBytes(const std::string& names, int perPixel) {
  for (const std::string& name : split(names)) rowBytes_[name] = perPixel;
  return *this;
}

Row& Row::setup(Change change) {
  setups_.push_back(std::move(change));
  return *this;
}

Row& Row::teardown(Change change) {
  teardowns_.push_back(std::move(change));
  return *this;
}

Row& Row::after(Change change) {
  afters_.push_back(std::move(change));
  return *this;
}

Row& Row::half(const std::string& name, int bytes) {
  halves_[name] = bytes;
  return *this;
}

Row& Row::good(QorStatus status) {
  good_ = status;
  return *this;
}

Row& Row::frees(const std::string& function, const std::string& argument) {
  return after([=](Call& done) {
    if (statuses::call(function, {outOf(done, argument)}) != qorStatusOk) throw std::logic_error("not freed");
  });
}

Row& Row::optional(const std::string& names) {
  const std::vector<std::string> all = split(names);
  for (const std::string& name : all) {
    treated_.insert(name + " null");
    acceptsCase(name + " null", [name](Call& c) { c.at(name) = static_cast<void*>(nullptr); });
  }
  if (all.size() > 1)
    acceptsCase("all optional pointers null", [all](Call& c) {
      for (const std::string& name : all) c.at(name) = static_cast<void*>(nullptr);
    });
  return *this;
}

Row& Row::accepts(const std::string& names, std::vector<Value> values) {
  for (const std::string& name : split(names)) {
    parameter(name);
    treated_.insert(name);
    for (size_t i = 0; i < values.size(); ++i)
      acceptsCase(name + ", good value " + std::to_string(i), [name, v = values[i]](Call& c) { c.at(name) = v; });
  }
  return *this;
}

Row& Row::any(const std::string& names, const Value& value) {
  with(names, value);
  for (const std::string& name : split(names)) {
    const Parameter& p = *parameter(name);
    if (p.floating) {
      accepts(name, {0.f, -1e30f, NAN, INFINITY});
    } else {
      accepts(name, p.element == 1   ? std::vector<Value>{0, 255}
                    : p.element == 2 ? std::vector<Value>{0, INT16_MAX}
                                     : std::vector<Value>{0, INT32_MIN, INT32_MAX});
    }
  }
  return *this;
}

Row& Row::acceptsCase(const std::string& what, Change change) { return warns(what, good_, std::move(change)); }

Row& Row::warns(const std::string& what, QorStatus status, Change change) {
  goodCases_.push_back({what, std::move(change), status});
  return *this;
}

Row& Row::region(const std::string& images, int32_t width, int32_t height) {
  for (const std::string& image : split(images)) regions_[image] = sizeOf(width, height);
  return *this;
}

Row& Row::fault(const std::string& argument, QorStatus status, Change apply, const std::string& what) {
  firstOfLastCheck_ = faults_.size();
  faults_.push_back({argument, status, std::move(apply), Fault::plain, what});
  treated_.insert(argument + (what == "null" ? " null" : ""));
  return *this;
}

Row& Row::writes(const std::string& names) {
  for (size_t i = firstOfLastCheck_; i < faults_.size(); ++i) faults_[i].writes = names;
  return *this;
}

Row& Row::narrows() {
  for (size_t i = firstOfLastCheck_; i < faults_.size(); ++i) faults_[i].kind = Fault::narrows;
  return *this;
}

Row& Row::null(const std::string& names) {
  if (!function_) return *this;
  std::vector<std::string> all = split(names);
  if (all.empty())
    for (const Parameter& p : function_->parameters)
      if (p.type == Type::pointer) all.push_back(p.name);
  const size_t first = faults_.size();
  for (const std::string& name : all) {
    parameter(name);
    fault(
        name, qorStatusNullPtr, [name](Call& c) { c.at(name) = static_cast<void*>(nullptr); }, "null");
  }
  firstOfLastCheck_ = first;
  return *this;
}

Row& Row::size(const std::string& names, QorStatus status) {
  const size_t first = faults_.size();
  for (const std::string& name : split(names)) {
    parameter(name);
    const QoriSize good = values_[name].as<QoriSize>();
    for (const int32_t wrong : {0, -1, -7}) {
      for (const QoriSize bad : {QoriSize{wrong, good.height}, QoriSize{good.width, wrong}}) {
        fault(
            name, status, [name, bad](Call& c) { c.at(name) = bad; }, "below 1");
        faults_.back().kind = Fault::narrows;
      }
    }
  }
  firstOfLastCheck_ = first;
  return *this;
}

QoriSize Row::regionOf(const std::string& image) const {
  if (const auto found = regions_.find(image); found != regions_.end()) return found->second;
  for (const std::string& name : {image + "RoiSize", std::string("roiSize")})
    for (const Parameter& p : function_->parameters)
      if (p.name == name) return values_.at(name).as<QoriSize>();
  return sizeOf(goodWidth, goodHeight);
}

Row& Row::step(const std::string& images) {
  if (!function_) return *this;
  std::vector<std::string> all = split(images);
  if (all.empty())
    for (const Parameter& p : function_->parameters)
      if (p.type == Type::pointer && isImage(p.name)) all.push_back(p.name);
  const size_t first = faults_.size();
  for (const std::string& image : all) {
    const Parameter* p = parameter(image);
    const int element = std::max(p->element, 1), given = rowBytes_[image];
    const int32_t row = regionOf(image).width * (given ? given : channelsOf(image) * element);
    const std::string name = stepOf(image);
    for (const int32_t bad : {row - element, row - 1, 0, -row, INT32_MIN}) {
      fault(
          name, qorStatusBadStep, [name, bad](Call& c) { c.at(name) = bad; }, "short");
      if (bad != INT32_MIN) faults_.back().kind = Fault::stepBelowRow;
    }
    acceptsCase(name + " tight", [name, row](Call& c) { c.at(name) = row; });
  }
  firstOfLastCheck_ = first;
  return *this;
}

Row& Row::align(const std::string& images, int multiple) {
  if (!function_) return *this;
  std::vector<std::string> all = split(images);
  if (all.empty())
    for (const Parameter& p : function_->parameters)
      if (p.type == Type::pointer && isImage(p.name) && p.element > 1) all.push_back(p.name);
  const size_t first = faults_.size();
  for (const std::string& image : all) {
    const int element = parameter(image)->element, unit = multiple ? multiple : element;
    const std::string name = stepOf(image);
    for (int more = 1; more < element; ++more) {
      if (more % unit == 0) {
        acceptsCase(name + " not a multiple of an element",
                    [name, more](Call& c) { c.at(name) = c.at(name).number + more; });
        continue;
      }
      fault(
          name, qorStatusBadStepAlign, [name, more](Call& c) { c.at(name) = c.at(name).number + more; },
          "misaligned by " + std::to_string(more));
    }
  }
  firstOfLastCheck_ = first;
  return *this;
}

Row& Row::stepsAndAlign(const std::string& images) {
  for (const std::string& image : split(images)) step(image).align(image);
  return *this;
}

Row& Row::bad(const std::string& names, std::vector<Value> values, QorStatus status) {
  const size_t first = faults_.size();
  for (const std::string& name : split(names)) {
    parameter(name);
    for (const Value& value : values)
      fault(
          name, status, [name, value](Call& c) { c.at(name) = value; }, "bad (" + std::to_string(value.number) + ")");
  }
  firstOfLastCheck_ = first;
  return *this;
}

// All memory of a row's arguments, in one piece with room around each, so that every byte can be compared.
struct Arena {
  std::vector<uint8_t> bytes = std::vector<uint8_t>(1 << 20, 0xA5);
  size_t used = 64;
  std::map<std::string, std::pair<size_t, size_t>> places;

  uint8_t* take(const std::string& name, size_t size, size_t before) {
    const size_t start = (used + before + 63) / 64 * 64;
    used = start + size + before + 64;
    if (used > bytes.size()) throw std::logic_error("the arguments need too much memory");
    places[name] = {start, size};
    return bytes.data() + start;
  }
};

static void fillElements(uint8_t* first, size_t size, const Parameter& p) {
  const size_t element = static_cast<size_t>(std::max(p.element, 1));
  for (size_t i = 0; (i + 1) * element <= size; ++i) {
    const int value = static_cast<int>(i * 7 % 5 + 1);
    uint8_t* place = first + i * element;
    if (p.floating && element == 4) {
      const float number = static_cast<float>(value);
      __builtin_memcpy(place, &number, 4);
    } else if (p.floating) {
      const double number = value;
      __builtin_memcpy(place, &number, 8);
    } else {
      for (size_t k = 0; k < element; ++k) place[k] = static_cast<uint8_t>(k ? 0 : value);
    }
  }
}

struct Row::Prepared {
  Arena arena;
  Call good;
  std::vector<uint8_t> before;

  void remember() { before.assign(arena.bytes.begin(), arena.bytes.begin() + static_cast<ptrdiff_t>(arena.used)); }
  // Whether a byte around the arguments is not as it was.
  bool changedAround() const {
    std::vector<uint8_t> now(arena.bytes.begin(), arena.bytes.begin() + static_cast<ptrdiff_t>(arena.used));
    for (const auto& argument : arena.places) {
      const auto [start, size] = argument.second;
      std::copy_n(before.begin() + static_cast<ptrdiff_t>(start), size, now.begin() + static_cast<ptrdiff_t>(start));
    }
    return now != before;
  }
  bool changed() const { return !std::equal(before.begin(), before.end(), arena.bytes.begin()); }
  void restore() { std::copy(before.begin(), before.end(), arena.bytes.begin()); }
  void restore(const std::string& name, size_t from) {
    const auto place = arena.places.at(name);
    std::copy_n(before.begin() + static_cast<ptrdiff_t>(place.first + from), place.second - from,
                arena.bytes.begin() + static_cast<ptrdiff_t>(place.first + from));
  }
};

void Row::prepare(Prepared& prepared, std::vector<std::string>& wrong) const {
  wrong = mistakes_;
  if (!function_) return;
  Arena& arena = prepared.arena;
  Call& good = prepared.good;
  good = {function_, std::vector<Value>(function_->parameters.size())};
  const auto value = [&](const std::string& name) {
    const auto found = values_.find(name);
    return found == values_.end() ? nullptr : &found->second;
  };
  for (const Parameter& p : function_->parameters) {
    if (p.type != Type::pointer) {
      if (const Value* given = value(p.name)) {
        good.at(p.name) = *given;  // a step too, instead of its image's
      } else if (!isStep(p.name)) {
        wrong.push_back("no good value for " + p.name);
      }
      continue;
    }
    if (const Value* given = value(p.name)) {
      good.at(p.name) = *given;
      continue;
    }
    const auto content = contents_.find(p.name);
    const auto room = rooms_.find(p.name);
    const size_t element = static_cast<size_t>(std::max(p.element, 1));
    size_t size = content != contents_.end() ? content->second.size()
                  : room != rooms_.end()     ? static_cast<size_t>(room->second)
                  : p.name == "buffer"       ? 16384
                                             : 64;
    if (isImage(p.name)) {
      // Rows with gaps: of three elements, so that steps of bytes are odd. Some functions read rows around the region.
      const QoriSize region = regionOf(p.name);
      const size_t step = static_cast<size_t>(region.width * channelsOf(p.name) + 3) * element;
      good.at(stepOf(p.name)) = static_cast<double>(step);
      if (room == rooms_.end() && content == contents_.end()) size = step * static_cast<size_t>(region.height);
    }
    uint8_t* memory = arena.take(p.name, size, isImage(p.name) ? 512 : 64);
    good.at(p.name) = static_cast<void*>(memory);
    if (content != contents_.end()) {
      std::copy(content->second.begin(), content->second.end(), memory);
    } else if (p.name != "buffer" && p.element && p.element <= 8) {
      fillElements(memory, size, p);
    }
  }
  for (const Parameter& p : function_->parameters)
    if (!treated_.count(p.name + (p.type == Type::pointer ? " null" : "")))
      wrong.push_back("nothing told of a wrong " + p.name);
  if (!wrong.empty()) return;
  for (const Change& change : setups_) change(good);
  prepared.remember();
}

std::vector<std::string> Row::run() const {
  std::vector<std::string> wrong;
  Prepared prepared;
  prepare(prepared, wrong);
  if (!wrong.empty()) return wrong;
  Call& good = prepared.good;
  const auto expectFailure = [&](const Call& bad, const Fault& fault, const std::string& what) {
    const int64_t blocks = services::liveBlocks();
    const QorStatus status = bad.run();
    if (status != fault.status)
      wrong.push_back(what + ": status " + std::to_string(status) + " instead of " + std::to_string(fault.status));
    if (services::liveBlocks() != blocks) wrong.push_back(what + ": a failing call left or freed memory");
    for (const std::string& name : split(fault.writes)) prepared.restore(name, 0);
    if (prepared.changed()) {
      wrong.push_back(what + ": a failing call wrote");
      prepared.restore();
    }
  };
  for (size_t i = 0; i < faults_.size(); ++i) {
    const Fault& first = faults_[i];
    const std::string name = first.argument + " " + first.what;
    Call single = good;
    first.apply(single);
    expectFailure(single, first, name);
    for (size_t j = i + 1; j < faults_.size(); ++j) {
      const Fault& second = faults_[j];
      if (first.argument == second.argument) continue;
      // A step is short for a good size only.
      if (first.kind == Fault::stepBelowRow && second.kind == Fault::narrows) continue;
      Call pair = good;
      second.apply(pair);
      first.apply(pair);
      expectFailure(pair, first, name + " and " + second.argument + " " + second.what);
    }
  }
  const auto expectSuccess = [&](Call call, QorStatus expected, const std::string& what) {
    const QorStatus status = call.run();
    if (status != expected)
      wrong.push_back(what + ": status " + std::to_string(status) + " instead of " + std::to_string(expected));
    if (status >= 0)
      for (const Change& change : afters_) change(call);
  };
  for (const auto& [what, change, status] : goodCases_) {
    Call accepted = good;
    change(accepted);
    expectSuccess(accepted, status, what);
    prepared.restore();
  }
  expectSuccess(good, good_, "without a fault");
  if (prepared.changedAround()) wrong.push_back("a good call wrote outside its arguments");
  for (const Change& change : teardowns_) change(good);
  if (services::liveBlocks()) wrong.push_back("memory left: " + std::to_string(services::liveBlocks()) + " blocks");
  return wrong;
}

std::vector<std::string> Row::runWithoutMemory(bool& allocates) const {
  std::vector<std::string> wrong;
  Prepared prepared;
  prepare(prepared, wrong);
  if (!wrong.empty()) return wrong;
  std::vector<GoodCase> cases = goodCases_;
  cases.push_back({"without a fault", [](Call&) {}, good_});
  allocates = false;
  for (const auto& [what, change, expected] : cases) {
    for (int64_t granted = 0;; ++granted) {
      const std::string where = what + ", allocation " + std::to_string(granted) + " failing";
      Call call = prepared.good;
      change(call);
      Prepared& now = prepared;
      const std::vector<uint8_t> unchanged = now.before;
      now.remember();  // the change of a good case may have been one of memory
      const int64_t blocks = services::liveBlocks(), asked = services::allocations();
      services::failAfter(granted);
      const QorStatus status = call.run();
      services::failAfter(-1);
      const bool failed = services::allocations() - asked > granted;
      if (services::allocations() != asked) allocates = true;
      if (failed) {
        if (status != qorStatusNoMemory) wrong.push_back(where + ": status " + std::to_string(status));
        if (services::liveBlocks() != blocks) wrong.push_back(where + ": memory left or lost");
        for (const auto& [name, bytes] : halves_) now.restore(name, static_cast<size_t>(bytes));
        if (now.changed()) wrong.push_back(where + ": wrote");
      } else {
        if (status != expected) wrong.push_back(where + ": status " + std::to_string(status));
        if (status >= 0)
          for (const Change& done : afters_) done(call);
        if (!afters_.empty() && services::liveBlocks() != blocks) wrong.push_back(where + ": not all freed");
      }
      now.before = unchanged;
      now.restore();
      if (!failed || wrong.size() > 20) break;
    }
  }
  for (const Change& change : teardowns_) change(prepared.good);
  if (services::liveBlocks()) wrong.push_back("memory left: " + std::to_string(services::liveBlocks()) + " blocks");
  return wrong;
}

}  // namespace statuses
