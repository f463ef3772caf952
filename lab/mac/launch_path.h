#pragma once

/// The path by which this program was launched, symbolic links not resolved: what the caller handed to
/// the system, also when a shell put a bare name into argv[0]. The text lives as long as the process; an
/// empty text when the system does not say.
const char* launchPath();
