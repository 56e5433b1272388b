! The library from Fortran: a handle, a callback, arguments by value and by reference.
module decay_system
  use, intrinsic :: iso_c_binding
  implicit none

  interface
    function TXOpenTrajex(fcn, order, RelTol, h) result(tx) bind(C, name="TXOpenTrajex")
      import :: c_ptr, c_funptr, c_int, c_double
      type(c_funptr), value :: fcn
      integer(c_int), value :: order
      real(c_double), value :: RelTol, h
      type(c_ptr) :: tx
    end function TXOpenTrajex

    function TXIntegrate(tx, t0, t1, y) result(done) bind(C, name="TXIntegrate")
      import :: c_ptr, c_int, c_double
      type(c_ptr), value :: tx
      real(c_double), intent(inout) :: t0
      real(c_double), value :: t1
      real(c_double), intent(inout) :: y(*)
      integer(c_int) :: done
    end function TXIntegrate

    function TXCloseTrajex(tx) result(done) bind(C, name="TXCloseTrajex")
      import :: c_ptr, c_int
      type(c_ptr), value :: tx
      integer(c_int) :: done
    end function TXCloseTrajex
  end interface

contains

  subroutine decay(t, y, f) bind(C)
    real(c_double), value :: t
    real(c_double), intent(in) :: y(1)
    real(c_double), intent(out) :: f(1)
    f(1) = -y(1) + 0 * t
  end subroutine decay

end module decay_system

program fortran_program
  use decay_system
  implicit none

  type(c_ptr) :: tx
  real(c_double) :: t, y(1)

  tx = TXOpenTrajex(c_funloc(decay), 1_c_int, 1e-10_c_double, 0.01_c_double)
  t = 0
  y(1) = 1
  if (TXIntegrate(tx, t, 1.0_c_double, y) /= 1) error stop "TXIntegrate"
  if (abs(y(1) - exp(-1.0_c_double)) > 1e-8_c_double) error stop "the integral"
  if (TXCloseTrajex(tx) /= 1) error stop "TXCloseTrajex"
end program fortran_program
