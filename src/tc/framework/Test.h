// The abstract base of every test a device offers: catalogue flags, the run
// from a command to its XML result, retries, progress events, cancellation,
// prompts, and the turning of every failure into an error child of the
// result. A concrete test supplies a constructor, SetParameters and DoRun.
#pragma once

#include <atomic>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "common/Persistent.h"
#include "common/TvkError.h"
#include "common/XmlObject.h"
#include "tc/framework/Parameter.h"

class Device;
class Prompt;
class ConcurrentPrompt;

class Test : public Persistent {
public:
    std::string name;
    Device* device = nullptr;  // not owned
    // Written by the run, read by a cancel from another thread.
    std::atomic<int32_t> loop{0};
    std::atomic<int32_t> recordNum{0};
    // Set by a cancel command, possibly from another thread; read between tries.
    std::atomic<bool> canceled{false};
    int32_t retries = 0;
    int32_t currentTry = 0;   // counted from 1
    std::string caption;      // already translated
    std::string description;  // already translated
    std::string currentState;
    uint32_t percentComplete = 0;
    std::ostringstream output;  // free text of the run
    XmlObject errorObject;      // an element without a name means no error
    std::string operationCaption;
    int32_t cpu = 0;  // processor on which the last try ended
    bool interactive = false;
    bool requiresMedia = false;
    bool requiresEquipment = false;
    bool requiresWindow = false;
    bool quick = false;
    bool complete = false;
    bool localOnly = false;
    bool singleThread = false;
    bool fieldtest = false;
    bool destructive = false;
    bool runMeNow = false;
    bool romTest = false;  // runs once and offers no retries parameter
    int32_t disableUITime = 0;
    bool blankPromptTitle = false;
    std::string unavailable;
    Prompt* prompt = nullptr;                          // owned
    std::vector<ConcurrentPrompt*> concurrentPrompts;  // owned
    ParameterList parameters;
    bool superLedTest = false;
    uint64_t startTicks = 0;

    Test();
    Test(const std::string& name, Device* device);
    // Copies everything but the output, the concurrent prompts and the
    // prompt (the copy gets a fresh one). The copy's parameter list names
    // the copy's own member parameters.
    Test(const Test& other);
    Test& operator=(const Test&) = delete;
    // Waits for the threads of the concurrent prompts to end before it
    // deletes them, since they use this test.
    ~Test() override;

    void ReadAndWrite(ptstream& stream, direction dir, unsigned int version) override;
    // Default implementation returns false.
    virtual bool LocksDevice();
    // Default implementation: the device is locked.
    virtual bool IsBlocked() const;
    // The catalogue element as text: CatalogElement written.
    virtual std::string GetXmlString() const;
    // The catalogue element: the test's flags, the retries parameter and the
    // parameter list. A device takes it as it is, not through its text.
    XmlObject CatalogElement() const;
    // The default of the retries parameter that the catalogue offers.
    // Default implementation returns 1, what a run takes without the
    // attribute.
    virtual int OfferedRetries() const;
    // Fills and adds the parameters; runs when the device takes the test and
    // at the start of every run. Default implementation does nothing.
    virtual void SetParameters();
    // Default implementation does nothing.
    virtual void DoSetup(const XmlObject& command);
    // Default implementation does nothing.
    virtual void DoCleanup(const XmlObject& command);
    // One try: true for pass, false or a TvkError for a failure.
    virtual bool DoRun(const XmlObject& command) = 0;

    // The whole run; the result element as text. Writes currentTry into
    // `command`.
    std::string Run(XmlObject& command);
    // SetParameters, the command's values, DoRun; nothing else.
    bool DirectDoRun(const XmlObject& command);
    void Begin();
    std::string Pass();
    std::string Fail();
    std::string Block();
    std::string Abort();
    // The run's error: `element` (of CaughtErrorElement, say) with the
    // device's description and the processor added to its text.
    void SetErrorObject(const XmlObject& element);
    XmlObject GetTestResult();
    XmlObject CreateEventObject(const std::string& tag);
    // Every call sends one progress event.
    void SetProgress(unsigned int done, unsigned int total);
    void SetOperationCaption(const std::string& caption);
    void ClearOutput();
    // `parameter` must be a member of this test (a copy relies on it).
    void AddParameter(Parameter* parameter);

    // Prompts; the answer is the value of the host's reply.
    std::string PromptUserText(const std::string& text, std::vector<std::string>& options, const std::string& type,
                               const std::string& width, const std::string& height);
    int PromptUser(const std::string& text, std::vector<std::string>& options, const std::string& type,
                   const std::string& width, const std::string& height);
    // Buttons: the first always, each further one when not empty; the
    // answer is the position of the chosen one.
    int PromptUser(const std::string& text, const std::string& button1, const std::string& button2 = "",
                   const std::string& button3 = "", const std::string& button4 = "");
    void SwitchPrompt(Prompt* prompt);

    // A prompt on a thread of its own, owned by the test; returns at once.
    ConcurrentPrompt* ConcurrentPromptUser(const std::string& text, std::vector<std::string>& options,
                                           const std::string& type, const std::string& width,
                                           const std::string& height);
    ConcurrentPrompt* startSuperLEDPrompt();
    // The caption of the item the user chose in a Super LED prompt.
    std::string SuperLEDResponseString(ConcurrentPrompt* prompt);

private:
    void RecordCpu();
};
