"""The server description that the plugin carries: its elements, their order and their attributes."""
import sys
import xml.etree.ElementTree as ET


def same(got, expected):
    if got != expected:
        sys.exit("got      %r\nexpected %r" % (got, expected))


# one text in the plugin's constant data
plugin = open(sys.argv[1], "rb").read()
begin = plugin.index(b"<ServerManagerConfiguration>")
configuration = ET.fromstring(plugin[begin:plugin.index(b"\0", begin)].decode())
same([child.tag for child in configuration], ["ProxyGroup"])
group = configuration[0]
same(group.get("name"), "sources")
same(len(group), 1)
proxy = group[0]
same(proxy.tag, "SourceProxy")
for name, value in (("name", "zrpMarivaneReader"), ("class", "vtkMarivaneReaderProxy"), ("label", "zrpMarivaneReader")):
    same(proxy.get(name), value)
documentation = proxy.find("Documentation")
same(documentation.get("long_help"), "Marivane log file and the Quenta.cnf provide inputs to the reader")
same(documentation.get("short_help"), "Select the log file to be used by the Marivane reader")
same(documentation.text.strip(), "Marivane reader requires the log file as an input. It picks up the problem name and "
                                 "the run id from the log file.")
expected = [
    ("InputProperty", {"name": "Input", "command": "SetInputConnection"}),
    ("StringVectorProperty", {"name": "DataGroupingString", "command": "GetDataGroupingString", "animateable": "0",
                              "number_of_elements": "1", "panel_visibility": "never", "information_only": "1"}),
    ("DoubleVectorProperty", {"name": "BlockCentroids", "command": "GetBlockCentroids", "animateable": "0",
                              "panel_visibility": "never", "information_only": "1", "default_values": "0;0;0",
                              "si_class": "vtkSIDataArrayProperty", "repeat_command": "1"}),
    ("StringVectorProperty", {"name": "LoadExtVariables", "command": "SetLoadExtVariables", "animateable": "0",
                              "number_of_elements": "1", "panel_visibility": "never", "information_only": "1"}),
    ("StringVectorProperty", {"name": "FileName", "command": "SetFileName", "number_of_elements": "1"}),
    ("StringVectorProperty", {"name": "PointArrayInfo", "information_only": "1"}),
    ("StringVectorProperty", {"name": "PointArrayStatus", "command": "SetPointArrayStatus", "number_of_elements": "0",
                              "repeat_command": "1", "number_of_elements_per_command": "2", "element_types": "2 0",
                              "information_property": "PointArrayInfo"}),
    ("DoubleVectorProperty", {"name": "TimestepValues", "information_only": "1"}),
]
properties = [child for child in proxy if child.tag.endswith("Property")]
same([(p.tag, dict(p.attrib)) for p in properties], expected)
named = {p.get("name"): p for p in properties}
groups = named["Input"].find("ProxyGroupDomain")
same((groups.get("name"), groups.find("Group").get("name")), ("groups", "sources"))
types = named["Input"].find("DataTypeDomain")
same((types.get("name"), types.find("DataType").get("value")), ("input_type", "vtkDataSet"))
same(named["DataGroupingString"][0].tag, "SimpleStringInformationHelper")
same(named["BlockCentroids"][0].tag, "DoubleArrayInformationHelper")
same(named["LoadExtVariables"][0].tag, "SimpleStringInformationHelper")
same((named["FileName"][0].tag, named["FileName"][0].get("name")), ("FileListDomain", "files"))
same((named["PointArrayInfo"][0].tag, dict(named["PointArrayInfo"][0].attrib)),
     ("ArraySelectionInformationHelper", {"attribute_name": "Point"}))
selection = named["PointArrayStatus"][0]
same((selection.tag, selection.get("name")), ("ArraySelectionDomain", "array_list"))
same(dict(selection.find("RequiredProperties/Property").attrib), {"name": "PointArrayInfo", "function": "ArrayList"})
same(named["TimestepValues"].find("TimeStepsInformationHelper") is not None, True)
same(named["TimestepValues"].find("Documentation").text.strip(), "Available timestep values.")
same(dict(proxy.find("Hints/ReaderFactory").attrib), {"extensions": "Log", "file_description": "Marivane Log File"})

same([child.tag for child in proxy if child not in properties], ["Documentation", "Hints"])
