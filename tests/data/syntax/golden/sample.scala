object Main extends App {
  /* outer /* inner */ still */
  val xs: List[Int] = List(1, 2)
  println(s"sum=${xs.sum}\t")  // total
  val c = 'c'
}
