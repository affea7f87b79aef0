/* zrpMarivaneReaderPlugin.cxx: what a ParaView server looks for when it loads the library: one plugin object that
 * hands over the server description and the function that registers our classes with an interpreter. */

#include "vtkClientServerInterpreter.h"
#include "vtkPVPlugin.h"
#include "vtkPVPluginLoader.h"
#include "vtkPVServerManagerPluginInterface.h"

#include "Plugin/Reader/vtkMarivaneReaderProxyClientServer.h"
#include "zrpMarivaneReaderXML.h"

class zrpMarivaneReaderPlugin : public vtkPVPlugin, public vtkPVServerManagerPluginInterface
{
public:
    const char *GetPluginName() override { return "zrpMarivaneReader"; }
    const char *GetPluginVersionString() override { return "2.0"; }
    bool        GetRequiredOnServer() override { return false; }
    bool        GetRequiredOnClient() override { return false; }
    const char *GetRequiredPlugins() override { return ""; }
    const char *GetDescription() override { return "Reader for Marivane data"; }
    const char *GetEULA() override { return nullptr; }
    void        GetBinaryResources(std::vector<std::string> &) override {}

    void GetXMLs(std::vector<std::string> &xmls) override { xmls.push_back(zrpMarivaneReaderXML); }

    vtkClientServerInterpreterInitializer::InterpreterInitializationCallback GetInitializeInterpreterCallback() override
    {
        return vtkMarivaneReaderCS_Initialize;
    }
};

/* The loader must forget the library when it goes. vtkPVPluginLoader.h holds a static
   vtkPVPluginLoaderCleanerInitializer, made before this object: it keeps the loader's own tables alive until then. */
static struct Unloading {
    ~Unloading() { vtkPVPluginLoader::PluginLibraryUnloaded("zrpMarivaneReader"); }
} unloading;

extern "C" VTK_ABI_EXPORT vtkPVPlugin *pv_plugin_instance_zrpMarivaneReader()
{
    static zrpMarivaneReaderPlugin instance;
    return &instance;
}

extern "C" VTK_ABI_EXPORT vtkPVPlugin *pv_plugin_instance()
{
    return pv_plugin_instance_zrpMarivaneReader();
}
