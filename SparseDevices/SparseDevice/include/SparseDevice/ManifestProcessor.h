#pragma once

#include "DataTypes/ChannelDescriptor.h"
#include "DataTypes/ConfigurationState.h"

#include <json/value.h>

#include <string>
#include <vector>

/// Reads device manifests into one ManifestData a device, and writes the present configuration of devices
/// back as configuration manifests. Failures are false and an error line; a document that fails leaves no
/// half-read device behind.
///
/// Threads: no lock; one thread at a time, const operations included, since some of them add data on demand.
/// Lifetime: references and pointers to data end at the next call that may add or destroy data.
class ManifestProcessor {
public:
    struct ApplicationManifestData {
        std::string applicationName;
        std::string applicationLabel;
        /// Forbids the server to map channels to the application's devices, whatever their manifests say.
        /// Comes from the command line, never from a document.
        bool disableAutomap = false;
    };

    /// What a manifest tells of one device. Copies are deep.
    struct ManifestData {
        std::string deviceType;  ///< text of a SparseDeviceType
        std::string deviceName;
        std::string deviceLabel;
        float updateHertz = 0;                      ///< 0: not given; 1001 and more: without limit
        std::vector<std::string> producerChannels;  ///< names of channels that the device produces
        std::vector<std::string> observerChannels;  ///< names of channels that it observes
        std::vector<ChannelDescriptor> customChannels;
        ConfigurationState configurationState;
        bool automapProducerChannels = true;
    };

    /// Reads a manifest file, its "Includes" expanded. An empty path warns and is true: a device may run
    /// without a manifest.
    bool ProcessManifest(std::string const& path);
    /// Reads a document: one sparse device, one configuration, or several devices under "Manifests". A
    /// failure destroys all data, those of earlier documents included.
    bool ProcessManifest(Json::Value& root);
    /// Reads a document from its text, without "Includes".
    bool ProcessManifestString(std::string const& text);

    /// Reads one device with its types; adds its data or leaves all as it was.
    bool ProcessSparseDeviceManifest(Json::Value& root);
    /// Reads the properties and settings of one device, which may use built-in types only.
    bool ProcessConfigurationManifest(Json::Value& root);

    /// Destroys all data. The application's stay.
    void ResetAllData();

    ApplicationManifestData const& GetAppData() const { return m_appData; }
    ApplicationManifestData& GetMutableAppData() { return m_appData; }

    /// The first device's data. Warns when there are several, and when there is none: then empty data are
    /// added.
    ManifestData const& GetData() const;
    ManifestData& GetMutableData();

    /// The data of that device; when there are none, warns and adds empty data of that name.
    ManifestData const& GetData(std::string const& deviceName) const;
    ManifestData& GetMutableData(std::string const& deviceName);

    /// The data of that device, or null.
    ManifestData const* GetDataForDevice(std::string const& deviceName) const;

    /// All data, sorted by device name after a document with several devices. Warns when there are none.
    std::vector<ManifestData> const& GetDatas() const;
    std::vector<ManifestData>& GetMutableDatas();

    /// The settings of a device as a configuration manifest. One whose value isn't set is left out.
    static Json::Value BuildConfigurationJsonObject(ManifestData const& data);
    /// The same as styled text.
    static std::string BuildConfigurationJsonString(ManifestData const& data);
    /// Several devices in one document, in the order given, as styled text.
    static std::string BuildMultiConfigurationJsonString(std::vector<ManifestData> const& datas);

    /// Hertz from a number or one of the words "standard", "realtime" and "unlimited", in any case.
    static bool ParseUpdateHertz(Json::Value const& value, float& out);
    /// Reads one element of "CustomChannels" into a descriptor; what it leaves out stays.
    static bool ParseCustomChannel(Json::Value const& value, ChannelDescriptor* out);

private:
    bool ReadApplicationData(Json::Value const& root);
    bool ProcessDocument(Json::Value& root);
    bool ProcessMultipleManifests(Json::Value& manifests);
    bool ReadNames(Json::Value const& root, bool mayRepeat, ManifestData& data) const;

    ApplicationManifestData m_appData;
    mutable std::vector<ManifestData> m_datas;
};
