// The error element of a failure: the element an error writes, and the one
// a test or diagnosis run reports for whatever exception it caught.
#pragma once

#include <string>

#include "common/TvkError.h"
#include "common/XmlObject.h"

class Device;

// The element of GetXml(), a warning's too.
XmlObject ErrorElement(const TvkWarning& error);

// The run that caught the exception: the two refer some errors differently.
enum class CaughtIn { testRun, diagnosisRun };

// The error element for the exception being handled; call only from inside
// a catch block. A TvkError keeps its texts and code and is referred to the
// class of `device` and to `runName`, to the front end when there is no
// device; so is a test run's FrontendError, since it comes from the user's
// parameters. Anything else becomes "Corvane internal error" of the front
// end, its detail the device's name, `runName` and the text the exception
// carried. For an exception that carried none a test run still adds the
// empty text, a diagnosis run leaves it out.
XmlObject CaughtErrorElement(CaughtIn run, const Device* device, const std::string& runName);
