#region Demo
using System;
/* entry */
class Probe {
  static void Main() { Console.WriteLine("tab\t{0}", 'x'); }  // run
  string p = @"C:\tmp\";  // not a comment
}
#endregion
