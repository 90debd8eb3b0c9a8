#include "tc/framework/CaughtError.h"

#include <exception>

#include "tc/framework/Device.h"

XmlObject ErrorElement(const TvkWarning& error) { return XmlObject(error.GetXml()); }

XmlObject CaughtErrorElement(CaughtIn run, const Device* device, const std::string& runName) {
    std::string text;
    bool carriedText = true;
    try {
        throw;
    } catch (TvkError& error) {
        const bool frontEnd = !device || (run == CaughtIn::testRun && dynamic_cast<FrontendError*>(&error));
        if (frontEnd)
            error.CrossReference("frontEnd", "frontEnd");
        else
            error.CrossReference(device->GetClassName(), runName);
        return ErrorElement(error);
    } catch (const char* thrown) {
        text = thrown ? thrown : "";
    } catch (const std::string& thrown) {
        text = thrown;
    } catch (const std::exception& thrown) {
        text = thrown.what();
    } catch (...) {
        carriedText = run == CaughtIn::testRun;
    }
    std::string detail = device ? device->name + ", " : std::string();
    detail += runName;
    if (carriedText) detail += ", " + text;
    TvkError error("Corvane internal error", detail, "");
    error.CrossReference("frontEnd", "frontEnd");
    return ErrorElement(error);
}
