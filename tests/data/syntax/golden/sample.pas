program Hello;
{$mode objfpc}
(* two-line
   note *)
var s: String;
BEGIN
  s := 'it''s';  // greet
  WriteLn(s, "raw")
end.
