// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/movestream.h"

#include <string>

namespace Zorvan {

// Each takes the whole stream and puts it moved, with everything else as it is. What has to be written otherwise comes
// back in words; empty when nothing has. All throw CInputError for what they cannot read. PLY, PCD, LAS, PTX,
// PTS and XYZ hand their points to whoever listens to the stream, and then put nothing; for E57 see StreamE57.

/// Whichever suits the ending of the file.
ZORVAN_SCANS_API std::string MoveAnyFormat(CMoveStream& stream, const CMovement& movement);

/// PLY: x y z, and nx ny nz when all are there.
ZORVAN_SCANS_API std::string MovePly(CMoveStream& stream, const CMovement& movement);
/// PCD: x y z, normals, the view point unless it is the one that stands for none.
ZORVAN_SCANS_API std::string MovePcd(CMoveStream& stream, const CMovement& movement);
/// LAS: coordinates, directions of waveforms; scale, offset and bounds in the header follow.
ZORVAN_SCANS_API std::string MoveLas(CMoveStream& stream, const CMovement& movement);
/// STL: corners and normals.
ZORVAN_SCANS_API std::string MoveStl(CMoveStream& stream, const CMovement& movement);
/// E57 and PTX hold scans with poses: these are moved, and the points stay.
ZORVAN_SCANS_API std::string MoveE57(CMoveStream& stream, const CMovement& movement);
ZORVAN_SCANS_API std::string MovePtx(CMoveStream& stream, const CMovement& movement);
/// Lines of numbers.
ZORVAN_SCANS_API std::string MovePts(CMoveStream& stream, const CMovement& movement);
ZORVAN_SCANS_API std::string MoveXyz(CMoveStream& stream, const CMovement& movement);
/// OBJ: v and vn.
ZORVAN_SCANS_API std::string MoveObj(CMoveStream& stream, const CMovement& movement);

} // namespace Zorvan
