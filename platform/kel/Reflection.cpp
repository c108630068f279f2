#include "platform/kel/Reflection.h"

namespace Kel {

const char* attrKindName(AttrKind k) noexcept {
  switch (k) {
    case AttrKind::scalar: return "scalar";
    case AttrKind::counter: return "counter";
    case AttrKind::reference: return "reference";
    case AttrKind::collection: return "collection";
    case AttrKind::ctorParam: return "ctorParam";
    case AttrKind::query: return "query";
    case AttrKind::reactor: return "reactor";
    case AttrKind::reactorCollection: return "reactorCollection";
  }
  return "unknown";
}

std::string Value::str() const {
  struct Printer {
    std::string operator()(std::monostate) const { return "None"; }
    std::string operator()(bool b) const { return b ? "True" : "False"; }
    std::string operator()(int64_t i) const { return std::to_string(i); }
    std::string operator()(uint64_t u) const { return std::to_string(u); }
    std::string operator()(double d) const { return Strep<double>::print(d); }
    std::string operator()(const std::string& s) const { return quote(s); }
    std::string operator()(const Ptr<Entity>& e) const {
      return e ? std::string(e->typeName()) + " " + e->fullName() : "None";
    }
  };
  return std::visit(Printer{}, v_);
}

namespace detail {
void badArgument(std::string_view what) { throw RangeException(std::string(what)); }
}  // namespace detail

const AttrInfo* TypeInfo::attr(std::string_view n) const noexcept {
  for (const AttrInfo& a : attrs) {
    if (a.name == n) return &a;
  }
  return nullptr;
}

Registry& Registry::instance() {
  static Registry* registry = new Registry();  // never destroyed: used until the very end
  return *registry;
}

TypeInfo& Registry::type(std::string_view name) {
  auto it = types_.find(name);
  if (it == types_.end()) {
    it = types_.emplace(std::string(name), TypeInfo{}).first;
    it->second.name = std::string(name);
  }
  return it->second;
}

const TypeInfo* Registry::find(std::string_view name) const noexcept {
  auto it = types_.find(name);
  return it == types_.end() ? nullptr : &it->second;
}

std::vector<std::string> Registry::typeNames() const {
  std::vector<std::string> out;
  for (const auto& [name, info] : types_) out.push_back(name);
  return out;
}

Value callHandler(Entity& entity, std::string_view handler, const NamedArgs& args) {
  const TypeInfo* t = Registry::instance().find(entity.typeName());
  auto it = t ? t->handlers.find(handler) : decltype(t->handlers.end()){};
  if (!t || it == t->handlers.end()) {
    throw InvalidOperationException("no handler " + std::string(handler) + " in " + entity.typeName());
  }
  const HandlerInfo& h = it->second;
  for (const std::string& p : h.params) {
    if (args.find(p) == args.end()) {
      throw InvalidOperationException("missing argument '" + p + "' to " + h.name);
    }
  }
  for (const auto& [name, value] : args) {
    bool known = false;
    for (const std::string& p : h.params) known = known || p == name;
    if (!known) throw InvalidOperationException("unknown argument '" + name + "' to " + h.name);
  }
  return h.call(entity, args);
}

Ptr<Entity> createEntity(std::string_view typeName) {
  const TypeInfo* t = Registry::instance().find(typeName);
  if (!t || !t->createEmpty) {
    throw InvalidOperationException("cannot create an entity of type " + std::string(typeName));
  }
  return t->createEmpty();
}

}  // namespace Kel
