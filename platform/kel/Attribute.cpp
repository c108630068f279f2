#include "platform/kel/Attribute.h"

namespace Kel {

void throwNullParameter(const char* typeName, const char* attr) {
  throw RangeException(std::string("null _") + attr + " parameter to mutator for " + typeName + "::" + attr +
                       " not allowed\"");
}

void throwAlreadyOwned(const char* typeName, const char* attr, const Entity& member) {
  throw RangeException(std::string("entity ") + member.fullName() + " given to " + typeName + "::" + attr +
                       " is already a member of " + member.parent()->fullName());
}

void throwReinstantiation(const std::string& fullName, const char* attr, const std::string& newValue,
                          const std::string& currentValue) {
  throw NameInUseException("Reinstantiating the entity with fullName " + fullName +
                           " where constructor parameter attribute '" + attr + "' has a different value of " +
                           newValue + " than the current value of " + currentValue + " not allowed");
}

void throwPointerReinstantiation(const char* attr, const std::string& newValue, const std::string& currentValue) {
  throw NameInUseException(std::string("Reinstantiating the pointer interface where constructor parameter attribute _") +
                           attr + " has a different value of " + newValue + " than the current value of " +
                           currentValue + " not allowed");
}

bool registerAttr(const char* typeName, const char* attr, const char* attrType, AttrKind kind) {
  TypeInfo& t = Registry::instance().type(typeName);
  if (t.attr(attr)) return true;  // a second copy of the same inline registration
  t.attrs.push_back(AttrInfo{attr, attrType, kind});
  if (kind == AttrKind::ctorParam) t.ctorParams.emplace_back(attr);
  return true;
}

}  // namespace Kel
