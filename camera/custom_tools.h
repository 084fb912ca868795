// The maker's tool configuration file: where it lies and the one section of it that is read.
#pragma once

inline constexpr char kCustomToolsFile[] = "/var/cfg/CustomTools.cfg";
inline constexpr char kCustomToolsSection[] = "CustomToolCfg";
