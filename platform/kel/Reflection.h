// Reflection: every type of the system, found by its full name.
//
// A type's entry lists its attributes (name, type name, kind) in declaration order, its
// constructor parameters in order, how its values print and parse (value types), how to create an
// empty instance (entities that a mount may have to create), and its hand-written handlers, which
// can be called by name with named arguments. An agent reaches operations such as `createVrf` or
// `processBfdReq` this way, exactly as it would on a router, where it does not link against the
// library's headers for them.
//
// Entries are filled during static initialisation by the entity macros (Attribute.h) and the
// registration macros below; look-ups happen at run time.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "platform/kel/Entity.h"
#include "platform/kel/Exception.h"
#include "platform/kel/Text.h"

namespace Kel {

enum class AttrKind : uint8_t {
  scalar,         // value with onX()
  counter,        // scalar with xInc
  reference,      // reference to an entity
  collection,     // keyed collection of values or entities
  ctorParam,      // fixed at construction
  query,          // computed
  reactor,        // a nested notifiee of a state machine
  reactorCollection,
};

const char* attrKindName(AttrKind k) noexcept;

struct AttrInfo {
  std::string name;
  std::string typeName;
  AttrKind kind;
};

// A value passed to or returned from a reflected call: nothing, a boolean, an integer, a real,
// a text (a value's text form, or a plain string), or an entity.
class Value {
 public:
  using Storage = std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Ptr<Entity>>;

  Value() = default;
  Value(bool v) : v_(v) {}                             // NOLINT: implicit on purpose
  Value(int v) : v_(static_cast<int64_t>(v)) {}        // NOLINT
  Value(int64_t v) : v_(v) {}                          // NOLINT
  Value(uint32_t v) : v_(static_cast<uint64_t>(v)) {}  // NOLINT
  Value(uint64_t v) : v_(v) {}                         // NOLINT
  Value(double v) : v_(v) {}                           // NOLINT
  Value(std::string v) : v_(std::move(v)) {}           // NOLINT
  Value(const char* v) : v_(std::string(v)) {}         // NOLINT
  template <class T, class = std::enable_if_t<std::is_base_of_v<Entity, T>>>
  Value(const Ptr<T>& p) : v_(Ptr<Entity>(const_cast<std::remove_const_t<T>*>(p.get()))) {}  // NOLINT

  const Storage& storage() const noexcept { return v_; }
  bool empty() const noexcept { return std::holds_alternative<std::monostate>(v_); }
  // A readable rendering, for messages.
  std::string str() const;

 private:
  Storage v_;
};

using NamedArgs = std::map<std::string, Value, std::less<>>;

namespace detail {
[[noreturn]] void badArgument(std::string_view what);
}

// Converts a reflected value to a C++ argument of type T: texts are parsed with T's text form,
// numbers and booleans convert where that loses nothing, entities are cast to T's pointer type.
template <class T>
T fromValue(const Value& v) {
  using U = std::remove_cv_t<std::remove_reference_t<T>>;
  const auto& s = v.storage();
  if constexpr (std::is_same_v<U, Value>) {
    return v;
  } else if constexpr (std::is_same_v<U, std::string>) {
    if (auto* t = std::get_if<std::string>(&s)) return *t;
    detail::badArgument("expected a string, got " + v.str());
  } else if constexpr (std::is_same_v<U, bool>) {
    if (auto* b = std::get_if<bool>(&s)) return *b;
    if (auto* t = std::get_if<std::string>(&s)) return strepToValue<bool>(*t);
    detail::badArgument("expected a boolean, got " + v.str());
  } else if constexpr (std::is_integral_v<U>) {
    if (auto* i = std::get_if<int64_t>(&s)) {
      if (std::in_range<U>(*i)) return static_cast<U>(*i);
    } else if (auto* u = std::get_if<uint64_t>(&s)) {
      if (std::in_range<U>(*u)) return static_cast<U>(*u);
    } else if (auto* t = std::get_if<std::string>(&s)) {
      return strepToValue<U>(*t);
    }
    detail::badArgument("expected an integer in range, got " + v.str());
  } else if constexpr (std::is_floating_point_v<U>) {
    if (auto* d = std::get_if<double>(&s)) return static_cast<U>(*d);
    if (auto* i = std::get_if<int64_t>(&s)) return static_cast<U>(*i);
    if (auto* u = std::get_if<uint64_t>(&s)) return static_cast<U>(*u);
    if (auto* t = std::get_if<std::string>(&s)) return static_cast<U>(strepToValue<double>(*t));
    detail::badArgument("expected a number, got " + v.str());
  } else if constexpr (requires { typename U::element_type; }) {
    using E = std::remove_const_t<typename U::element_type>;
    if (std::holds_alternative<std::monostate>(s)) return U();
    if (auto* e = std::get_if<Ptr<Entity>>(&s)) {
      if (!*e) return U();
      if (auto* t = dynamic_cast<E*>(e->get())) return U(t);
      detail::badArgument(std::string("expected an entity of type ") + E::kTypeName + ", got " + v.str());
    }
    detail::badArgument("expected an entity, got " + v.str());
  } else {
    if (auto* t = std::get_if<std::string>(&s)) return strepToValue<U>(*t);
    detail::badArgument("expected a text form, got " + v.str());
  }
}

template <class T>
Value toValue(const T& v) {
  if constexpr (std::is_same_v<T, Value>) {
    return v;
  } else if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, double> || std::is_same_v<T, std::string>) {
    return Value(v);
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    return Value(static_cast<int64_t>(v));
  } else if constexpr (std::is_integral_v<T>) {
    return Value(static_cast<uint64_t>(v));
  } else if constexpr (requires { typename T::element_type; }) {
    return Value(v);
  } else {
    return Value(Strep<T>::print(v));
  }
}

struct HandlerInfo {
  std::string name;
  std::vector<std::string> params;
  std::function<Value(Entity&, const NamedArgs&)> call;
};

struct TypeInfo {
  std::string name;
  std::vector<AttrInfo> attrs;
  std::vector<std::string> ctorParams;
  std::map<std::string, HandlerInfo, std::less<>> handlers;
  // Value types: the text form of a value handed over as an opaque pointer, and a check that a
  // text parses. Entities: a creator of an empty instance, where one makes sense.
  std::function<std::string(const void*)> print;
  std::function<void(std::string_view)> parseCheck;
  std::function<Ptr<Entity>()> createEmpty;

  const AttrInfo* attr(std::string_view n) const noexcept;
};

class Registry {
 public:
  static Registry& instance();
  // The entry for `name`, created on first use.
  TypeInfo& type(std::string_view name);
  const TypeInfo* find(std::string_view name) const noexcept;
  std::vector<std::string> typeNames() const;

 private:
  std::map<std::string, TypeInfo, std::less<>> types_;
};

// Calls the handler `handler` of `entity` (looked up by the entity's type name) with named
// arguments. Throws InvalidOperationException for an unknown handler or a missing or
// surplus argument, and the argument's own parse or range error for a bad value.
Value callHandler(Entity& entity, std::string_view handler, const NamedArgs& args);

// Creates an empty entity of a registered type; InvalidOperationException if it has no creator.
Ptr<Entity> createEntity(std::string_view typeName);

namespace detail {

// Converts every argument to its plain type first (a braced list converts in parameter order,
// so the first bad argument is the one reported), then calls.
template <class C, class F, class R, class... P, size_t... I>
Value invokeConverted(F fn, C& obj, const std::vector<std::string>& names, const NamedArgs& args,
                      std::index_sequence<I...>) {
  [[maybe_unused]] auto arg = [&](size_t i) -> const Value& { return args.find(names[i])->second; };
  std::tuple<std::remove_cvref_t<P>...> values{fromValue<std::remove_cvref_t<P>>(arg(I))...};
  if constexpr (std::is_void_v<R>) {
    (obj.*fn)(std::get<I>(values)...);
    return Value();
  } else {
    return toValue((obj.*fn)(std::get<I>(values)...));
  }
}

template <class C, class R, class... P, size_t... I>
Value invokeHandler(R (C::*fn)(P...), C& obj, const std::vector<std::string>& names, const NamedArgs& args,
                    std::index_sequence<I...> seq) {
  return invokeConverted<C, decltype(fn), R, P...>(fn, obj, names, args, seq);
}

template <class C, class R, class... P, size_t... I>
Value invokeHandler(R (C::*fn)(P...) const, C& obj, const std::vector<std::string>& names,
                    const NamedArgs& args, std::index_sequence<I...> seq) {
  return invokeConverted<C, decltype(fn), R, P...>(fn, obj, names, args, seq);
}

template <class F>
struct MemberFn;
template <class C, class R, class... P>
struct MemberFn<R (C::*)(P...)> {
  using Class = C;
  static constexpr size_t arity = sizeof...(P);
};
template <class C, class R, class... P>
struct MemberFn<R (C::*)(P...) const> {
  using Class = C;
  static constexpr size_t arity = sizeof...(P);
};

}  // namespace detail

// Registers a member function of an entity type as a handler callable by name.
template <auto Fn>
bool registerHandler(const char* typeName, const char* handlerName, std::vector<std::string> params) {
  using Traits = detail::MemberFn<decltype(Fn)>;
  using C = typename Traits::Class;
  if (params.size() != Traits::arity) throw InvalidOperationException("handler parameter names do not match");
  HandlerInfo info;
  info.name = handlerName;
  info.params = params;
  info.call = [params](Entity& e, const NamedArgs& args) -> Value {
    auto* obj = dynamic_cast<C*>(&e);
    if (!obj) throw InvalidOperationException(std::string("entity is not a ") + e.typeName());
    return detail::invokeHandler(Fn, *obj, params, args, std::make_index_sequence<Traits::arity>());
  };
  Registry::instance().type(typeName).handlers[handlerName] = std::move(info);
  return true;
}

// Registers a value type's text form.
template <class T>
bool registerValueType(const char* typeName, std::vector<AttrInfo> fields = {}) {
  TypeInfo& t = Registry::instance().type(typeName);
  t.print = [](const void* v) { return Strep<T>::print(*static_cast<const T*>(v)); };
  t.parseCheck = [](std::string_view text) { (void)strepToValue<T>(text); };
  if (!fields.empty()) t.attrs = std::move(fields);
  for (const AttrInfo& a : t.attrs) t.ctorParams.push_back(a.name);
  return true;
}

}  // namespace Kel

#define KEL_CONCAT_INNER(a, b) a##b
#define KEL_CONCAT(a, b) KEL_CONCAT_INNER(a, b)

// At namespace scope in a source file: KEL_REGISTER_HANDLER(RouteStatusSm, processBfdReq,
// "nextHopAddr", "intfId", "add") makes processBfdReq callable by name with those arguments.
#define KEL_REGISTER_HANDLER(Class, fn, ...)                                                         \
  [[maybe_unused]] static const bool KEL_CONCAT(kelHandlerRegistered_, __LINE__) =                  \
      ::Kel::registerHandler<&Class::fn>(Class::kTypeName, #fn, std::vector<std::string>{__VA_ARGS__})
