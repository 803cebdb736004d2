#include "kelvaroctl/certificate_record.h"

#include <algorithm>

namespace kelvaroctl {

static const char kRecordValue[] = "CertSync";

std::string ReadRecord(const SettingsHive& hive)
{
    const auto value = hive.Read(kRecordValue);
    return value && value->type == REG_SZ ? ToNarrow(TextOf(*value)) : "";
}

bool Knows(const std::string& record, const std::string& hash)
{
    return record.find(hash) != std::string::npos;
}

std::vector<std::string> HashesOf(const std::string& record)
{
    std::vector<std::string> hashes;
    for (size_t begin = 0; begin < record.size();) {
        const size_t end = std::min(record.find(',', begin), record.size());
        if (end > begin)
            hashes.push_back(record.substr(begin, end - begin));
        begin = end + 1;
    }
    return hashes;
}

static void WriteRecord(const SettingsHive& hive, const std::vector<std::string>& hashes)
{
    std::string record;
    for (const std::string& hash : hashes)
        record += hash + ",";
    hive.Write(kRecordValue, TextValue(ToWide(record)));
}

void ForgetHashes(const SettingsHive& hive, const std::vector<std::string>& hashes)
{
    std::vector<std::string> kept = HashesOf(ReadRecord(hive));
    kept.erase(std::remove_if(kept.begin(), kept.end(),
                              [&](const std::string& hash) {
                                  return std::find(hashes.begin(), hashes.end(), hash) != hashes.end();
                              }),
               kept.end());
    WriteRecord(hive, kept);
}

void RememberHashes(const SettingsHive& hive, const std::vector<std::string>& hashes)
{
    const std::string record = ReadRecord(hive);
    std::vector<std::string> all = HashesOf(record);
    for (const std::string& hash : hashes) {
        if (!Knows(record, hash))
            all.push_back(hash);
    }
    WriteRecord(hive, all);
}

}  // namespace kelvaroctl
