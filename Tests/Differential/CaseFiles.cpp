// The reader of case files belongs to the template tests; this program has its own copy of the compiled code.
#include "Tests/Templates/CaseFile.cpp"  // NOLINT(bugprone-suspicious-include): each program compiles one folder
