"""The plugin exports its entry points and the functions of rdb/rdb.h, and nothing else."""
import re
import subprocess
import sys

nm, plugin, header = sys.argv[1:4]
ENTRIES = {"pv_plugin_instance", "pv_plugin_instance_zrpMarivaneReader", "vtkMarivaneReaderCS_Initialize",
           "vtkMarivaneReader_Init", "vtkMarivaneReaderModule_Init", "vtkMarivaneReaderProxy_Init",
           "vtkMarivaneReaderProxyCommand"}

text = re.sub(r"/\*.*?\*/", " ", open(header).read(), flags=re.S)
interface = set(re.findall(r"\bRDB_API\b[^;(]*?\b(rdb[A-Z]\w*)\s*\(", text))
assert len(interface) >= 40, interface
lines = subprocess.run([nm, "-D", "--defined-only", plugin], check=True, text=True, stdout=subprocess.PIPE).stdout
exported = {line.split()[-1].split("@")[0] for line in lines.splitlines()}
wanted = ENTRIES | interface
for name in sorted(wanted - exported):
    print("not exported:", name)
for name in sorted(exported - wanted):
    print("exported, but no part of the interface:", name)
sys.exit(exported != wanted)
