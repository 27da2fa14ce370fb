/// Platform names of the deployment tool.
#pragma once

/// Identifier of this build's own platform.
inline constexpr int KQUPDATE_PLATFORM = 10;

/// The deployment tool's name for a platform identifier; an empty text for one that names no platform.
const char* getOsHdwName(int identifier);

/// Whether an identifier names a platform.
bool isValidKqupdateOsHdwNamesIdentifier(int identifier);

/// The identifier for hosts of the Debian family.
int getKqupdateOsHdwDebianIdentifier();
