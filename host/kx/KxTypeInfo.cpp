#include <kx/KxTypeInfo.h>

#include <map>
#include <mutex>

namespace {

struct Registry
{
    std::mutex mutex;
    std::map<std::string, const KxTypeInfo*> byName;
};

// Never destroyed: package libraries withdraw their types from static destructors that may run
// after this library's own statics are gone.
Registry& registry()
{
    static Registry* r = new Registry;
    return *r;
}

} // namespace

KxTypeInfo::KxTypeInfo(const char* name, CreateFunc create, const KxTypeInfo* parent)
    : m_name(name), m_create(create), m_parent(parent)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.byName[m_name] = this;
}

KxTypeInfo::~KxTypeInfo()
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.byName.find(m_name);
    if (it != r.byName.end() && it->second == this) r.byName.erase(it);
}

bool KxTypeInfo::isDerivedFrom(const KxTypeInfo* other) const
{
    for (const KxTypeInfo* t = this; t; t = t->m_parent)
        if (t == other) return true;
    return false;
}

const KxTypeInfo* KxTypeInfo::fromName(const char* name)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.byName.find(name);
    return it == r.byName.end() ? nullptr : it->second;
}

bool KxTypeInfo::removeType(const char* name)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.byName.erase(name) > 0;
}

std::vector<const KxTypeInfo*> KxTypeInfo::allTypes()
{
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    std::vector<const KxTypeInfo*> all;
    for (auto& kv : r.byName) all.push_back(kv.second);
    return all;
}
