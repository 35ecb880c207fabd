// A typed value as devices hand it over: a number, or nothing.
#pragma once

/// Holder of one number.
///
/// Threads: a plain value; one thread at a time.
class KTValue
{
public:
    KTValue() = default;
    KTValue(const KTValue&) = default;
    KTValue& operator=(const KTValue&) = default;
    virtual ~KTValue() = default;

    void SetNumeric(double value)
    {
        number = value;
        numeric = true;
    }
    void Reset()
    {
        number = 0.0;
        numeric = false;
    }
    [[nodiscard]] bool IsNumeric() const { return numeric; }

    double number = 0.0;  // NaN means no value

private:
    bool numeric = false;
};
