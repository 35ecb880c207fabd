// Registries of any size over cells that a benchmark owns.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "host/KTDriver.h"

/// A device whose variables are the cells of one vector, named V0, V1 and so on.
class BenchDriver : public KTDriver
{
public:
    explicit BenchDriver(int variables);
    ~BenchDriver() override;

    [[nodiscard]] const KTWideString& DeviceName() const override { return name; }
    [[nodiscard]] std::uint32_t DeviceState() const override { return 0; }
    bool VariableId(const wchar_t* variable, int& id) override;
    void ReleaseVariable(int& /*id*/) override {}
    bool ReadVariable(int id, KTValue& value) override;
    bool VariableInfo(int /*id*/, tagSVariableInfo& /*info*/) override { return false; }
    [[nodiscard]] const KTWideString& DeviceType() const override { return empty; }
    bool VariableValueInfo(int /*id*/, tagSVariableValueInfo& /*info*/) override { return false; }
    const std::atomic<double>* ValueCell(int id) override { return &cells[static_cast<std::size_t>(id)]; }
    [[nodiscard]] int VariableCount() const override { return static_cast<int>(cells.size()); }
    [[nodiscard]] KTDateTime ValueTime(int /*id*/) const override { return {}; }
    [[nodiscard]] const KTWideString& Description() const override { return empty; }
    bool WriteVariable(int id, double value) override;

    std::vector<std::atomic<double>> cells;

private:
    KTWideString name{L"B"};
    KTWideString empty;
};

/// A configuration directory that goes with its object.
class BenchDirectory
{
public:
    BenchDirectory();
    BenchDirectory(const BenchDirectory&) = delete;
    BenchDirectory& operator=(const BenchDirectory&) = delete;
    ~BenchDirectory();

    /// Makes it the configuration of KTCorvaneSetup.
    void Use() const;

    /// Events over `variables` cells each, of about `bytes` of XML (0: no more than needed). Returns the document's size.
    [[nodiscard]] std::size_t WriteEvents(int events, int variables, std::size_t bytes) const;

    [[nodiscard]] std::string EventsFile() const { return path + "/default.xeve"; }

private:
    std::string path;
};
