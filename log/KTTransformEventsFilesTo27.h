// The conversion of the old event log, all events of a month in one file, into files of their own.
#pragma once

#include "host/KTDateTime.h"
#include "host/KTString.h"

class KTFileWindow;

/// Converts the old files of the data directory into the tree and deletes them.
///
/// It goes to its end and tells nothing of what it drops: records of events that aren't in the registry, and those whose
/// file can't be made. A file of the new form that was there for an event and month is replaced. An old file that doesn't
/// begin as one stays where it is.
///
/// A month's new files stand on the disk before its old ones are deleted, so a conversion that was cut off can simply be
/// run again.
///
/// Errors:  none are told.
/// Threads: one, while no scan runs: it reads the registry, whose events must be loaded, and takes no lock.
class KTTransformEventsFilesTo27
{
public:
    KTTransformEventsFilesTo27() = default;
    KTTransformEventsFilesTo27(const KTTransformEventsFilesTo27&) = default;
    KTTransformEventsFilesTo27& operator=(const KTTransformEventsFilesTo27&) = default;
    virtual ~KTTransformEventsFilesTo27() = default;

    /// Everything that is found; always true.
    bool Transform();

private:
    /// One month; `annotationFile` may be -1. False when `recordFile` is -1.
    bool TransformFile(const KTDateTime& monthStart, int recordFile, int annotationFile);

    /// A handle, or -1 for a file that isn't there or doesn't begin as one.
    int OpenFile(const wchar_t* path);
    int OpenAnnotationFile(const wchar_t* path);

    /// Always true: a place that leads nowhere means no annotation.
    bool LoadAnnotation(KTNarrowString& text, int file, unsigned long offset, KTFileWindow& window);
};
