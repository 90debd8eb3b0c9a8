#include "tc/framework/Test.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "common/Debug.h"
#include "common/StringUtil.h"
#include "common/TickTimer.h"
#include "common/Translate.h"
#include "common/xmldef.h"
#include "platform/HostServices.h"
#include "tc/framework/CaughtError.h"
#include "tc/framework/ComponentOutlet.h"
#include "tc/framework/ConcurrentPrompt.h"
#include "tc/framework/Device.h"
#include "tc/framework/Prompt.h"

namespace {
// atoi as the 32-bit target has it: leading digits, saturating.
int32_t toInt(const std::string& text) {
    long long number = std::strtoll(text.c_str(), nullptr, 10);
    if (number > INT32_MAX) return INT32_MAX;
    if (number < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(number);
}

const char* flag(bool on) { return on ? "1" : "0"; }
}  // namespace

Test::Test() : prompt(new Prompt), startTicks(TickTimer::GetCurrentTimeInTicks()) {}

Test::Test(const std::string& testName, Device* testDevice)
    : name(testName), device(testDevice), prompt(new Prompt), startTicks(TickTimer::GetCurrentTimeInTicks()) {}

Test::Test(const Test& other)
    : Persistent(other),
      name(other.name),
      device(other.device),
      loop(other.loop.load()),
      recordNum(other.recordNum.load()),
      canceled(other.canceled.load()),
      retries(other.retries),
      currentTry(other.currentTry),
      caption(other.caption),
      description(other.description),
      currentState(other.currentState),
      percentComplete(other.percentComplete),
      errorObject(other.errorObject),
      operationCaption(other.operationCaption),
      cpu(other.cpu),
      interactive(other.interactive),
      requiresMedia(other.requiresMedia),
      requiresEquipment(other.requiresEquipment),
      requiresWindow(other.requiresWindow),
      quick(other.quick),
      complete(other.complete),
      localOnly(other.localOnly),
      singleThread(other.singleThread),
      fieldtest(other.fieldtest),
      destructive(other.destructive),
      runMeNow(other.runMeNow),
      romTest(other.romTest),
      disableUITime(other.disableUITime),
      blankPromptTitle(other.blankPromptTitle),
      unavailable(other.unavailable),
      prompt(new Prompt),
      parameters(other.parameters),
      superLedTest(other.superLedTest),
      startTicks(other.startTicks) {
    // The entries are members of the test, so each names the member at the
    // same place in this copy as in the original. The copy is of the
    // original's class, so the places agree.
    const uintptr_t from = reinterpret_cast<uintptr_t>(&other);
    const uintptr_t to = reinterpret_cast<uintptr_t>(this);
    for (Parameter*& entry : parameters.parameters)
        if (entry) entry = reinterpret_cast<Parameter*>(reinterpret_cast<uintptr_t>(entry) - from + to);
}

Test::~Test() {
    // Each ConcurrentPrompt waits in its destructor until its thread, which
    // uses this test and its prompt, has ended.
    for (ConcurrentPrompt* concurrent : concurrentPrompts) delete concurrent;
    concurrentPrompts.clear();
    delete prompt;
}

void Test::ReadAndWrite(ptstream& stream, direction dir, unsigned int) {
    if (dir == ptRead) {
        iptstream& in = static_cast<iptstream&>(stream);
        in >> name;
        in.ReadReference(device);
        bool wasCanceled = false;
        int32_t storedLoop = 0;
        int32_t storedRecord = 0;
        in >> storedLoop >> storedRecord >> wasCanceled >> retries >> currentTry >> caption >> description >>
            currentState >> percentComplete >> operationCaption >> cpu;
        loop = storedLoop;
        recordNum = storedRecord;
        canceled = wasCanceled;
        in >> interactive >> requiresMedia >> requiresEquipment >> requiresWindow >> quick >> complete >> localOnly >>
            singleThread >> fieldtest >> destructive >> runMeNow >> romTest;
        in >> disableUITime >> unavailable;
    } else {
        optstream& out = static_cast<optstream&>(stream);
        out << name;
        out.WriteReference(device);
        out << loop.load() << recordNum.load() << canceled.load() << retries << currentTry << caption << description
            << currentState << percentComplete << operationCaption << cpu;
        out << interactive << requiresMedia << requiresEquipment << requiresWindow << quick << complete << localOnly
            << singleThread << fieldtest << destructive << runMeNow << romTest;
        out << disableUITime << unavailable;
    }
}

bool Test::LocksDevice() { return false; }

bool Test::IsBlocked() const { return device && device->locked; }

void Test::SetParameters() {}
void Test::DoSetup(const XmlObject&) {}
void Test::DoCleanup(const XmlObject&) {}

int Test::OfferedRetries() const { return 1; }

std::string Test::GetXmlString() const { return CatalogElement().GetXmlString(); }

XmlObject Test::CatalogElement() const {
    XmlObject element;
    element.name = xmldef::test;
    element.SetAttribute(xmldef::name, name);
    element.SetAttribute(xmldef::caption, caption);
    element.SetAttribute(xmldef::description, description);
    element.SetAttribute(xmldef::interactive, flag(interactive));
    element.SetAttribute(xmldef::requiresMedia, flag(requiresMedia));
    element.SetAttribute(xmldef::requiresEquipment, flag(requiresEquipment));
    element.SetAttribute(xmldef::quick, flag(quick));
    element.SetAttribute(xmldef::complete, flag(complete));
    element.SetAttribute(xmldef::requiresWindow, flag(requiresWindow));
    element.SetAttribute(xmldef::localOnly, flag(localOnly));
    element.SetAttribute(xmldef::singleThread, flag(singleThread));
    element.SetAttribute(xmldef::destructive, flag(destructive));
    element.SetAttribute(xmldef::romTest, flag(romTest));
    element.SetAttribute(xmldef::fieldtest, flag(fieldtest));
    if (runMeNow) element.SetAttribute(xmldef::runMeNow, "1");
    if (disableUITime > 0) element.SetAttribute(xmldef::disableUITime, disableUITime, 10);
    if (!unavailable.empty()) element.SetAttribute(xmldef::unavailable, unavailable);

    if (!romTest) {
        // The retries parameter is the run's own, not one of the list.
        XmlObject retriesParameter;
        retriesParameter.name = xmldef::parameter;
        retriesParameter.SetAttribute(xmldef::name, xmldef::retries);
        retriesParameter.SetAttribute(xmldef::caption, Translate("Retries"));
        retriesParameter.SetAttribute(xmldef::description, Translate("Number of retries if test fails"));
        retriesParameter.SetAttribute(xmldef::type, xmldef::int_x);
        retriesParameter.SetAttribute(xmldef::min, 0, 10);
        retriesParameter.SetAttribute(xmldef::max, 5, 10);
        retriesParameter.SetAttribute(xmldef::defaultValue, OfferedRetries(), 10);
        element.children.push_back(std::move(retriesParameter));
    }
    element.children.push_back(parameters.ToXml());
    return element;
}

// ---- the run ----

void Test::RecordCpu() {
    cpu = nvxGetCurrentCPU();
    dbgprintf("current test running on CPU %d\n", cpu);
    nvxSetTaskAffinity(nvxGetCpuAvailMask());
}

std::string Test::Run(XmlObject& command) {
    operationCaption.clear();
    superLedTest = command.GetAttributeValue(xmldef::superLedTest, "0") != "0";
    errorObject = XmlObject();
    if (!device) throw TvkError("Device not found", "", "");
    if (IsBlocked()) return Block();

    const bool locks = LocksDevice();
    if (locks) device->locked = true;
    // The lock is released on every way out, an event that cannot be sent
    // included.
    struct Unlocker {
        Device* device;
        bool active;
        ~Unlocker() {
            if (active) device->locked = false;
        }
    } unlocker{device, locks};

    loop = toInt(command.GetAttributeValue(xmldef::loop, ""));
    recordNum = toInt(command.GetAttributeValue(xmldef::recordNum, ""));
    canceled = false;  // a cancel that came before this run has no effect on it
    Begin();

    std::string result;
    try {
        const std::string retriesText = command.GetAttributeValue(xmldef::retries, "1");
        retries =
            (!retriesText.empty() && std::isdigit(static_cast<unsigned char>(retriesText[0]))) ? toInt(retriesText) : 1;
        if (romTest) retries = 0;
        if (static_cast<uint32_t>(retries) > 5)
            throw FrontendError(Translate("Parameter outside acceptable range"), "");
        startTicks = TickTimer::GetCurrentTimeInTicks();
        DoSetup(command);
        cpu = 0;
        // Written only when someone reads it: a command may be megabytes.
        if (IsDebugOutputEnabled()) dbgprintf("%s\n", command.GetXmlString().c_str());
        SetParameters();
        parameters.Parse(command);

        bool passed = false;
        int32_t i = 0;
        do {
            currentTry = i + 1;
            command.SetAttribute(xmldef::currentTry, currentTry, 10);
            ClearOutput();
            if (canceled) break;
            try {
                passed = DoRun(command);
                RecordCpu();
            } catch (TvkError& error) {
                RecordCpu();
                // Only the last try's error is reported, and always as a
                // plain TvkError.
                if (i == retries) throw TvkError(error);
            }
            ++i;
        } while (i <= retries && !passed);

        DoCleanup(command);
        if (canceled)
            result = Abort();
        else if (passed)
            result = Pass();
        else
            result = Fail();
    } catch (...) {
        SetErrorObject(CaughtErrorElement(CaughtIn::testRun, device, name));
        result = Fail();
    }
    return result;
}

bool Test::DirectDoRun(const XmlObject& command) {
    SetParameters();
    parameters.Parse(command);
    return DoRun(command);
}

void Test::Begin() {
    currentState = xmldef::running;
    SetProgress(0, 100);
}

std::string Test::Pass() {
    currentState = xmldef::passed;
    SetProgress(100, 100);
    return GetTestResult().GetXmlString();
}

std::string Test::Fail() {
    currentState = xmldef::failed;
    SetProgress(100, 100);
    XmlObject result(GetTestResult().GetXmlString());
    // Every failed result says why, also when DoRun merely returned false.
    if (result.FindObjects("error").empty())
        result.AddObject(ErrorElement(TvkError("Missing Error Description", "", "")));
    return result.GetXmlString();
}

std::string Test::Block() {
    currentState = xmldef::blocked;
    SetProgress(0, 100);
    ClearOutput();
    return GetTestResult().GetXmlString();
}

std::string Test::Abort() {
    currentState = xmldef::canceled;
    return GetTestResult().GetXmlString();
}

void Test::SetErrorObject(const XmlObject& element) {
    errorObject = element;
    std::string text;
    if (device && !device->description.empty()) text += device->description + ", ";
    if (!errorObject.value.empty()) text += errorObject.value + ", ";
    text += Translate("Ran on CPU ") + std::to_string(cpu);
    errorObject.value = text;
}

XmlObject Test::GetTestResult() {
    XmlObject result = CreateEventObject(xmldef::testResult);
    XmlObject outputElement;
    outputElement.name = xmldef::output;
    outputElement.value = output.str();
    result.AddObject(outputElement);
    ClearOutput();
    result.SetAttribute(xmldef::testTime, GetElapsedTimeSince(startTicks));
    if (errorObject.name == xmldef::error) result.AddObject(errorObject);
    return result;
}

XmlObject Test::CreateEventObject(const std::string& tag) {
    XmlObject event;
    event.name = tag;
    if (device) event.SetAttribute(xmldef::device, device->name);
    event.SetAttribute(xmldef::test, name);
    event.SetAttribute(xmldef::percentComplete, percentComplete, 10);
    event.SetAttribute(xmldef::currentState, currentState);
    event.SetAttribute(xmldef::loop, loop.load(), 10);
    event.SetAttribute(xmldef::recordNum, recordNum.load(), 10);
    event.SetAttribute(xmldef::OperationCaption, operationCaption);
    return event;
}

void Test::SetProgress(unsigned int done, unsigned int total) {
    percentComplete = total == 0 ? 100u : static_cast<uint32_t>(static_cast<uint32_t>(done) * 100u) / total;
    outlet::SendEvent(CreateEventObject(xmldef::diagUpdate).GetXmlString());
}

void Test::SetOperationCaption(const std::string& newCaption) {
    operationCaption = newCaption;
    outlet::SendEvent(CreateEventObject(xmldef::diagUpdate).GetXmlString());
}

void Test::ClearOutput() {
    output.str(std::string());
    output.clear();
}

void Test::AddParameter(Parameter* parameter) { parameters.Insert(parameter); }

// ---- prompts ----

std::string Test::PromptUserText(const std::string& text, std::vector<std::string>& options, const std::string& type,
                                 const std::string& width, const std::string& height) {
    if (!interactive) throw TvkError("Invalid Prompt: test is not interactive", "", "");
    std::string shown = text;
    // The user sees which try is asking.
    if (currentTry >= 2) shown += strprintf(" (%s #%d)", Translate("try").c_str(), currentTry);

    prompt->testName = name;
    prompt->deviceName = device ? device->name : "no device name";
    prompt->testCaption = caption.empty() ? name : caption;
    prompt->deviceCaption = device ? device->caption : "no device caption";
    prompt->loop = loop;
    prompt->recordNum = recordNum;
    prompt->superLed = superLedTest;
    prompt->blankTitle = blankPromptTitle;

    currentState = xmldef::waitingForPrompt;
    std::string answer = prompt->PromptUserText(shown, options, type, width, height);
    currentState = xmldef::running;
    return answer;
}

int Test::PromptUser(const std::string& text, std::vector<std::string>& options, const std::string& type,
                     const std::string& width, const std::string& height) {
    return toInt(PromptUserText(text, options, type, width, height));
}

int Test::PromptUser(const std::string& text, const std::string& button1, const std::string& button2,
                     const std::string& button3, const std::string& button4) {
    std::vector<std::string> options{button1};
    for (const std::string* button : {&button2, &button3, &button4})
        if (!button->empty()) options.push_back(*button);
    return PromptUser(text, options, "button", "500", "200");
}

void Test::SwitchPrompt(Prompt* newPrompt) {
    if (newPrompt == prompt) return;
    delete prompt;
    prompt = newPrompt;
}

ConcurrentPrompt* Test::ConcurrentPromptUser(const std::string& text, std::vector<std::string>& options,
                                             const std::string& type, const std::string& width,
                                             const std::string& height) {
    ConcurrentPrompt* concurrent = new ConcurrentPrompt(this, text, options, type, width, height);
    concurrentPrompts.push_back(concurrent);
    concurrent->start();
    return concurrent;
}

ConcurrentPrompt* Test::startSuperLEDPrompt() {
    SuperLEDItems items = SuperLEDPrompt().getItems();
    return ConcurrentPromptUser(Translate("Select the device that its LED is blinking"), items.captions, "button",
                                "500", "200");
}

std::string Test::SuperLEDResponseString(ConcurrentPrompt* concurrent) {
    if (!concurrent) return std::string();
    SuperLEDItems items = SuperLEDPrompt().getItems();
    const int32_t index = concurrent->response;
    if (index < 0 || static_cast<size_t>(index) >= items.captions.size()) return std::string();
    return items.captions[index];
}
