#include "timetable/KTTimeTable.h"

bool KTTimeTable::LoadXml(const XmlDocument::XmlNode* node)
{
    id = node->Value(L"id", L"");
    name = node->Value(L"name", L"");
    return id.Length() >= 1 && name.Length() >= 1;
}

bool KTTimeTable::NeedCheck(const KTDateTime& /*when*/) { return false; }

bool KTTimeTable::HandsOn(const KTDateTime& /*when*/, KTTimeTable*& /*table*/) { return false; }

bool KTTimeTable::FollowAndCheck(const KTDateTime& when)
{
    // A walk instead of a recursion, so that a long chain of tables can't exhaust the stack. A circle is found by holding
    // a mark that jumps ahead at every power of two.
    KTTimeTable* table = this;
    const KTTimeTable* mark = this;
    unsigned steps = 0;
    unsigned untilNextMark = 1;
    for (KTTimeTable* next = nullptr; table->HandsOn(when, next); table = next)
    {
        if (next == nullptr || next == mark) return true;
        if (++steps == untilNextMark)
        {
            mark = next;
            steps = 0;
            untilNextMark *= 2;
        }
    }
    return table->NeedCheck(when);
}
