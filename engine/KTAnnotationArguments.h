// The compiled arguments of an event's annotations, from one expansion to the next.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/KTEvaluator.h"

/// To compile an argument takes longer than all the rest of an expansion, and its text hardly ever changes. So the
/// evaluators stay with the event between two expansions; each tells by its text whether it is still the right one.
///
/// Threads: an evaluator serves one thread at a time. An expansion takes all of them for itself by KTAnnotationArguments::Use
///          and brings them back at its end; another one meanwhile finds none and makes its own.
/// Memory:  none until the first argument is shown.
class KTAnnotationArguments
{
public:
    KTAnnotationArguments() = default;
    KTAnnotationArguments(const KTAnnotationArguments&) = delete;
    KTAnnotationArguments& operator=(const KTAnnotationArguments&) = delete;
    ~KTAnnotationArguments() { delete kept.load(std::memory_order_acquire); }

private:
    struct Compiled
    {
        KTEvaluator evaluator;
        bool numeric = false;
    };
    using All = std::vector<std::unique_ptr<Compiled>>;  // by the number of the argument, from 0; null: not yet

public:
    /// One expansion's hold on them.
    class Use
    {
    public:
        explicit Use(KTAnnotationArguments& its) : place(its.kept) {}
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        /// Of two expansions at once the later one's remain.
        ~Use()
        {
            if (all) delete place.exchange(all.release(), std::memory_order_acq_rel);
        }

        /// The value now of the argument at `index`, from 0, whose expression is `text`. False when that isn't numeric, or
        /// can't be evaluated now.
        bool Evaluate(std::size_t index, const KTWideString& text, double& value);

    private:
        Compiled& Find(std::size_t index, const KTWideString& text, Compiled& spare);

        std::atomic<All*>& place;
        std::unique_ptr<All> all;
    };

private:
    std::atomic<All*> kept{nullptr};  // owned; null while an expansion has them
};
