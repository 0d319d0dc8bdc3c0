// SPDX-License-Identifier: MIT
#pragma once

#include "commandline.h"

namespace tools {

/// Each adds its subcommand with options and help. Wrong input is thrown as CInputError when it runs.
void AddAlign(CCommand app);
void AddJudge(CCommand app);
void AddRegister(CCommand app);
void AddApply(CCommand app);
void AddFeatures(CCommand app);
void AddFit(CCommand app);
void AddSimulate(CCommand app);
void AddEvaluate(CCommand app);
void AddSession(CCommand app);
void AddSettings(CCommand app);
void AddFlags(CCommand app);
void AddInfo(CCommand app);
void AddDump(CCommand app);
void AddCurve(CCommand app);
void AddOutline(CCommand app);
void AddConvert(CCommand app);
void AddDevices(CCommand app);

} // namespace tools
