package demo;
/** Docs. */
public class Tally {
  @Override
  public String toString() { return "n=\"" + count; }  // text
  int returnValue = 'q';
}
