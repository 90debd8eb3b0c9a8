// The one source of the raw text that describes the USB topology: the
// kernel's devices file, or, where that cannot be read, a file "devices" in
// the working directory made from `lsusb -v`. The reader picks the source,
// produces the file when it must and hands it out line by line; it knows
// nothing of either format. Its operations are virtual so that another
// source (LiteralReader.h: text in memory) can stand in.
#pragma once

#include <cstdio>
#include <list>
#include <memory>
#include <string>

class USBInfoReader {
public:
    // Size of the buffer that readLine fills, newline and terminator included.
    static const int lineBufferSize = 256;

    USBInfoReader();
    // Closes nothing and removes nothing: the opener closes, and the file
    // "devices" stays on disk after discovery.
    virtual ~USBInfoReader();
    USBInfoReader(const USBInfoReader&) = delete;
    USBInfoReader& operator=(const USBInfoReader&) = delete;

    // Opens devicesFile for reading; may be repeated to read from the start.
    virtual bool open();
    virtual void close();
    // As fgets into `buffer` (at least lineBufferSize bytes): a longer line
    // comes in several pieces and only the last ends in a newline. Null at
    // the end.
    virtual char* readLine(char* buffer);
    // Tries to mount usbfs on /proc/bus/usb; results are ignored.
    virtual void mountProcUsb();
    // True once a read has run into the end of the text.
    virtual bool noMoreLines();
    // True when /etc/SuSE-release names release 10.
    virtual bool isSles10();
    // True when the kernel's devices file can be opened for reading.
    virtual bool isDevicesFileAvalable();
    // Writes `lsusb -v` output to devicesFile; false only when the shell
    // could not be started.
    virtual bool createDevicesFile();
    virtual void deleteDevicesFile();
    virtual const char* getDevicesFile();
    // Chooses the source: the kernel's file when it is readable, otherwise a
    // fresh "devices" file from lsusb.
    virtual bool setDevicesFile();
    virtual bool moreLines();
    // Blanks squeezed to single ones, leading blanks gone, a blank behind the
    // last token; every call leaves a trace in "bang1.txt". The buffer is cut
    // as strtok cuts it: the blank behind each token but the last becomes the
    // end of the string.
    virtual std::string reformatLine(char* buffer);
    // The same line appended to `out` instead of returned, with the same
    // trace; gives the length appended. The discovery road cuts its text
    // with this, so that no line needs a string of its own.
    size_t reformatLineInto(char* buffer, std::string& out);

    // While a hold lives, reformatLine keeps "bang1.txt" open and writes the
    // trace in large pieces instead of opening the file for every line; the
    // bytes and their order are the same. A hold inside a hold does nothing.
    // A hold made with openNow false keeps the trace in memory and opens the
    // file only when Open is called: a hold that never opens leaves no trace
    // and no file behind.
    class TraceHold {
    public:
        explicit TraceHold(USBInfoReader& reader, bool openNow = true);
        // Writes out what waits and closes the file.
        ~TraceHold();
        TraceHold(const TraceHold&) = delete;
        TraceHold& operator=(const TraceHold&) = delete;
        // Opens the file of a hold made with openNow false and writes what
        // waits; does nothing on any other hold.
        void Open();

    private:
        USBInfoReader& reader;
        bool owner;
        bool pending;  // an owner whose file is not opened yet
    };

    // Points the reader at the kernel's devices file without any test.
    void setMountedDevicesFile();

    // What follows the first word of `text`, or the word itself when it is
    // the only one.
    static std::string extractMoreIn(std::string text);
    // `line` behind the key and one separator; throws std::out_of_range when
    // the line is too short.
    static std::string extractStringIn(std::string line, std::string key);
    static bool isFoundInLine(std::string line, std::string key);
    // The lines of `text` without the port and device status lines.
    static std::list<std::string> processHubPorts(std::string text);

protected:
    std::FILE* file;
    const char* devicesFile;

private:
    void FlushTrace();

    static const size_t readBufferSize = 64 * 1024;

    // Backing store for a path the reader made itself.
    std::string ownPath;
    // What was read from the stream and not yet handed out, and whether a
    // read has run into the end of the text.
    std::unique_ptr<char[]> readBuffer;
    size_t readStart = 0;
    size_t readEnd = 0;
    bool endSeen = false;
    // The trace while a hold lives: its descriptor (-1 when it could not be
    // opened or is not opened yet) and the bytes that wait to be written.
    bool traceHeld = false;
    bool traceDeferred = false;  // held, and the file not opened yet
    int traceFd = -1;
    std::string traceBuffer;
};

// Fixed names of the sources.
extern const char* const kernelDevicesFile;  // "/proc/bus/usb/devices"
extern const char* const lsusbDevicesFile;   // "devices"
