#include "clusterinfo/cluster_json.h"

#include "platform/json.h"

namespace libclusterinfo {

namespace {

/// A text that is not UTF-8 has no form in JSON: it becomes an empty one, so that no key is ever missing.
/// The reference is the caller's, as of every function here that makes a value.
json_t* textValue(const std::string& text)
{
    json_t* value = json_string(text.c_str());
    return value ? value : json_string("");
}

json_t* nameRecord(const ResourceInfo& info)
{
    json_t* record = json_object();
    json_object_set_new(record, "name", textValue(info.name));
    json_object_set_new(record, "fqdn", textValue(info.fqdn));
    json_object_set_new(record, "ipv4", textValue(info.ipv4));
    json_object_set_new(record, "ipv6", textValue(info.ipv6));
    return record;
}

json_t* ownerArray(const std::list<std::string>& owners)
{
    json_t* array = json_array();
    for (const std::string& owner : owners)
        json_array_append_new(array, textValue(owner));
    return array;
}

json_t* virtualNameRecord(const VirtualNameInfo& info)
{
    json_t* record = nameRecord(info);
    json_object_set_new(record, "ownerList", ownerArray(info.ownerList));
    return record;
}

template <typename Entry>
json_t* recordArray(const std::list<Entry>& entries, json_t* (*makeRecord)(const Entry&))
{
    json_t* array = json_array();
    for (const Entry& entry : entries)
        json_array_append_new(array, makeRecord(entry));
    return array;
}

json_t* virtualNameWithoutOwners(const VirtualNameInfo& info)
{
    return nameRecord(info);
}

void dump(const tq::JsonRef& value, std::string& out)
{
    const tq::JsonText text(json_dumps(value.get(), 0));
    if (text)
        out = text.get();
}

} // namespace

void ClusterInfoToJson(const ClusterInfo& info, std::string& out)
{
    out.clear();
    const tq::JsonRef object(json_object());
    json_object_set_new(object.get(), "clusterType", json_string(GetClusterTypeStr(info.clusterType)));
    json_object_set_new(object.get(), "cluster", nameRecord(info.cluster));
    json_object_set_new(object.get(), "nodeList", recordArray(info.nodeList, nameRecord));
    json_object_set_new(object.get(), "virtualInfoList",
                        recordArray(info.virtualInfoList, virtualNameRecord));
    dump(object, out);
}

void NodeInfoToJson(const ClusterNodeInfo& info, std::string& out)
{
    out.clear();
    const tq::JsonRef object(json_object());
    json_object_set_new(object.get(), "node", nameRecord(info.node));
    json_object_set_new(object.get(), "cluster", nameRecord(info.cluster));
    json_object_set_new(object.get(), "virtualInfoList",
                        recordArray(info.virtualInfoList, virtualNameWithoutOwners));
    dump(object, out);
}

void StatusToJson(std::string& out, int status)
{
    out.clear();
    const tq::JsonRef object(json_object());
    json_object_set_new(object.get(), "status", json_integer(status));
    dump(object, out);
}

} // namespace libclusterinfo
