#pragma once
#include <string>
#include <vector>

class KxTypedObject;

// Type identity record: one per class, with its parent and a factory. Creating a record enters it
// in the registry by name; removeType withdraws it.
class KxTypeInfo
{
public:
    using CreateFunc = KxTypedObject* (*)();

    KxTypeInfo(const char* name, CreateFunc create, const KxTypeInfo* parent);
    ~KxTypeInfo();
    KxTypeInfo(const KxTypeInfo&) = delete;
    KxTypeInfo& operator=(const KxTypeInfo&) = delete;

    const char* getName() const { return m_name.c_str(); }
    const KxTypeInfo* getParent() const { return m_parent; }
    bool isDerivedFrom(const KxTypeInfo* other) const;
    bool canCreate() const { return m_create != nullptr; }
    // A new instance, or null for an abstract type.
    KxTypedObject* createInstance() const { return m_create ? m_create() : nullptr; }

    // Registered record of that name, or null.
    static const KxTypeInfo* fromName(const char* name);
    // Withdraws the record of that name from the registry (the record itself lives on).
    static bool removeType(const char* name);
    // All registered records, sorted by name.
    static std::vector<const KxTypeInfo*> allTypes();

private:
    std::string m_name;
    CreateFunc m_create;
    const KxTypeInfo* m_parent;
};
