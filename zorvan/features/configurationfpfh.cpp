#include "zorvan/features/configurationfpfh.h"

namespace prereg {

ConfigurationFPFH ConfigurationFPFH::Scale(double factor) const
{
    ConfigurationFPFH scaled = *this;
    if (dMaxPolygonDiameter >= 0) scaled.dMaxPolygonDiameter *= factor;
    scaled.dMaxPolygonVertexError *= factor;
    scaled.dFeatureRadius *= factor;
    scaled.dGridSize *= factor;
    scaled.dFeatureGridSize *= factor;
    scaled.dTrafoPositionClusteringBandwidth *= factor;
    scaled.icpConfig = icpConfig.Scale(factor);
    return scaled;
}

} // namespace prereg
