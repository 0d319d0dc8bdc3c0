#include "settinglimits.h"

#include "zorvan/features/configurationfpfh_fields.h"

namespace tools {

std::string WhatIsWrongWith(const bson::element& setting)
{
    for (const prereg::SettingInfo& info : prereg::AllSettings()) {
        if (info.key != setting.name_string()) continue;
        if (setting.type() == bson::element::eUInt32) return prereg::WhatIsWrong(info, setting.as_uint32());
        if (setting.type() == bson::element::eDouble) return prereg::WhatIsWrong(info, setting.as_double());
    }
    return {};
}

} // namespace tools
