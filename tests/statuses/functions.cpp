// The list of all functions, from the public header itself: each declaration is followed by an entry in the list.
#include <stdint.h>

#include <sstream>

#include "statuses/table.h"

namespace statuses {

template <class R, class... A, size_t... index>
static QorStatus invokeWith(void (*address)(), const Value* values, std::index_sequence<index...>) {
  const auto function = reinterpret_cast<R (*)(A...)>(address);
  (void)values;
  if constexpr (std::is_same_v<R, QorStatus>) {
    return function(values[index].template as<A>()...);
  } else {
    return function(values[index].template as<A>()...) ? qorStatusOk : qorStatusNullPtr;
  }
}

template <class R, class... A>
static QorStatus invoke(void (*address)(), const Value* values) {
  return invokeWith<R, A...>(address, values, std::index_sequence_for<A...>());
}

template <class T, class = void>
struct SizeOf {
  static constexpr int value = 0;
};
template <class T>
struct SizeOf<T, std::void_t<decltype(sizeof(T))>> {
  static constexpr int value = sizeof(T);
};
template <>
struct SizeOf<void, void> {
  static constexpr int value = 0;
};

template <class A>
static Parameter parameterOf() {
  if constexpr (std::is_pointer_v<A>) {
    using T = std::remove_cv_t<std::remove_pointer_t<A>>;
    return {"", Type::pointer, SizeOf<T>::value, std::is_floating_point_v<T>};
  } else if constexpr (std::is_arithmetic_v<A>) {
    return {"", Type::number, sizeof(A), std::is_floating_point_v<A>};
  } else {
    return {"", std::is_same_v<A, QoriSize> ? Type::size : Type::record, sizeof(A), false};
  }
}

static std::map<std::string, Function>& list() {
  static std::map<std::string, Function> functions;
  return functions;
}

// The names in "(const uint8_t* src, int32_t srcStep)".
static void add(const char* name, const std::string& arguments, std::vector<Parameter> parameters, void (*address)(),
                QorStatus (*invoker)(void (*)(), const Value*)) {
  std::istringstream pieces(arguments.substr(1, arguments.size() - 2));
  std::string piece;
  for (Parameter& parameter : parameters) {
    std::getline(pieces, piece, ',');
    const size_t end = piece.find_last_not_of(" []0123456789") + 1;
    parameter.name = piece.substr(piece.find_last_of(" *", end - 1) + 1);
    if (const size_t bracket = parameter.name.find('['); bracket != std::string::npos) parameter.name.resize(bracket);
  }
  list()[name] = {name, std::move(parameters), address, invoker};
}

struct Entry {
  template <class R, class... A>
  Entry(const char* name, const char* arguments, R (*function)(A...)) {
    add(name, arguments, {parameterOf<A>()...}, reinterpret_cast<void (*)()>(function), &invoke<R, A...>);
  }
};

const std::map<std::string, Function>& functions() { return list(); }

}  // namespace statuses

#define QORAPI(type, name, args) \
  type name args;                \
  static const statuses::Entry entry_##name(#name, #args, name)
#include "qorcvmx.h"
