#include "zorvan/core/configurationicp.h"

namespace prereg {

ConfigurationICP ConfigurationICP::Scale(double f) const
{
    ConfigurationICP scaled = *this;
    scaled.dMinQueryRadius *= f;
    scaled.dMaxRMSE *= f;
    scaled.dMaxStdDev *= f;
    scaled.dPointAccuracy *= f;
    scaled.dMinOverlapArea *= f * f;
    if (dMaxMovement > 0) scaled.dMaxMovement *= f;
    return scaled;
}

} // namespace prereg
