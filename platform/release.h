/// The release that this build belongs to: the one place where its number stands.
#pragma once

#define TQ_RELEASE_NUMBER "9.1.0.1"

/// Product name and release as the log shows them.
inline constexpr const char* TQ_RELEASE_NAME = "Torquenix " TQ_RELEASE_NUMBER;

/// The same in the form of an installed version: product, "_", number.
inline constexpr const char* TQ_BINARY_VERSION = "Torquenix_" TQ_RELEASE_NUMBER;

/// When the build was made; "0" for a build that anyone can repeat bit for bit.
inline constexpr const char* TQ_BUILD_CREATED = "0";

/// What the HTTP client calls itself.
inline constexpr const char* TQ_USER_AGENT = "tqhostdbcmd/" TQ_RELEASE_NUMBER;
