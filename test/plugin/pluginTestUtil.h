#ifndef TEST_PLUGIN_PLUGINTESTUTIL_H
#define TEST_PLUGIN_PLUGINTESTUTIL_H

/* pluginTestUtil.h: what the reader's unit tests share: a reader whose tables can be looked at, a pipeline around the
 * proxy, what VTK and the message layer said, and the comparison of a delivery with the model of the run. */

#include "Plugin/Reader/vtkMarivaneReader.h"
#include "Plugin/Reader/vtkMarivaneReaderProxy.h"

#include "vtkDataArraySelection.h"
#include "vtkFloatArray.h"
#include "vtkMultiBlockDataSet.h"
#include "vtkNew.h"
#include "vtkPointData.h"
#include "vtkUnstructuredGrid.h"

#include <functional>
#include <string>
#include <vector>

#include "test/testUtil.h"
#include "tool/runWriter.h"

/* Opens the door to the reader's tables. */
class TestReader : public vtkMarivaneReader
{
public:
    static TestReader *New();
    vtkTypeMacro(TestReader, vtkMarivaneReader);

    using vtkMarivaneReader::Arrays;
    using vtkMarivaneReader::Blocks;
    using vtkMarivaneReader::CbcGroups;
    using vtkMarivaneReader::Coordinates;
    using vtkMarivaneReader::CurrentCoordinateStep;
    using vtkMarivaneReader::Database;
    using vtkMarivaneReader::ElmGroups;
    using vtkMarivaneReader::MeshDisplacementIndex;
    using vtkMarivaneReader::NameArrays;
    using vtkMarivaneReader::NumberOfCells;
    using vtkMarivaneReader::OsfGroups;
    using vtkMarivaneReader::RsfGroups;
    using vtkMarivaneReader::SrsGroups;
    using vtkMarivaneReader::Variable;
    using vtkMarivaneReader::Variables;
};

/* The proxy with such a reader, or with another one of its kind. */
class TestProxy : public vtkMarivaneReaderProxy
{
public:
    static TestProxy *New();
    vtkTypeMacro(TestProxy, vtkMarivaneReaderProxy);

    using vtkMarivaneReaderProxy::RequestData;

    void        SetReader(vtkMarivaneReaderBase *reader);      /* null: none, as if it could not be made */
    TestReader *GetReader() { return TestReader::SafeDownCast(this->Reader); }

protected:
    TestProxy() { this->SetReader(vtkNew<TestReader>()); }
    ~TestProxy() override { if (!this->Reader) this->Reader = TestReader::New(); }
};

/* Options for the next open: lines of a configuration file of their own. */
void setOptions(const std::string &lines = "");

/* What f printed on standard output, and the texts that the VTK objects below raised as errors. */
std::string printed(const std::function<void()> &f);
std::vector<std::string> errorsOf(vtkObject *object, const std::function<void()> &f);

/* One update of the proxy's pipeline, at a time if one is given, with the output of that update. */
vtkMultiBlockDataSet *update(vtkMarivaneReaderProxy *proxy);
vtkMultiBlockDataSet *update(vtkMarivaneReaderProxy *proxy, double time);

vtkUnstructuredGrid *gridOf(vtkMultiBlockDataSet *output, int block);
vtkFloatArray       *arrayOf(vtkMultiBlockDataSet *output, int block, const std::string &name);

/* The first difference between what was delivered and what the model holds at a step position, "" if there is none:
   cells and points of each block, and the arrays by name, components and value. moved: points are displaced. */
std::string differs(const tool::RunModel &model, vtkMultiBlockDataSet *output, int step, bool moved = false);

#endif
